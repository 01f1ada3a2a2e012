-- Where collector.py writes. (store, seq) names a record for ever: a batch that comes twice changes nothing.
--
-- TimescaleDB wants the time in every unique key: make it PRIMARY KEY (store, seq, heard), which says the same, and then
--   SELECT create_hypertable('brenloft.record', 'heard', chunk_time_interval => INTERVAL '1 day');

CREATE SCHEMA IF NOT EXISTS brenloft;

CREATE TABLE IF NOT EXISTS brenloft.record (
  store       uuid        NOT NULL,  -- the history that it comes from
  seq         bigint      NOT NULL,
  gateway     text        NOT NULL,
  heard       timestamptz NOT NULL,  -- by the gateway's clock
  event       text        NOT NULL,  -- reading, found, lost, emergency, alarm_raised, ...
  beacon      text,                  -- none: of the gateway itself
  name        text,
  place       text,
  rssi        smallint,              -- dBm
  temperature numeric(5, 2),         -- degrees Celsius
  humidity    numeric(5, 2),         -- percent
  battery     smallint,
  emergency   smallint,
  accel       integer[],
  text        text,
  historical  boolean     NOT NULL,  -- it waited for the broker
  synced      boolean     NOT NULL,  -- whether the gateway trusted its clock when it sent this
  sent        timestamptz NOT NULL,  -- by the gateway's clock, and
  received    timestamptz NOT NULL DEFAULT now(),  -- by this one: heard + (received - sent) mends a wrong clock
  PRIMARY KEY (store, seq)
);
CREATE INDEX IF NOT EXISTS record_of_beacon ON brenloft.record (beacon, heard);

-- What a gateway could not send: rows of its history between two numbers.
CREATE TABLE IF NOT EXISTS brenloft.gap (
  store uuid   NOT NULL,
  first bigint NOT NULL,
  last  bigint NOT NULL,
  count bigint NOT NULL,
  PRIMARY KEY (store, first, last)
);

CREATE TABLE IF NOT EXISTS brenloft.gateway (
  gateway text PRIMARY KEY,
  online  boolean     NOT NULL,
  since   timestamptz NOT NULL DEFAULT now()
);

-- What is no batch is kept for people, so that it does not come back for ever.
CREATE TABLE IF NOT EXISTS brenloft.refused (
  received timestamptz NOT NULL DEFAULT now(),
  topic    text NOT NULL,
  payload  bytea NOT NULL,
  reason   text NOT NULL
);

-- A beacon is home while any gateway hears it that is online itself.
CREATE OR REPLACE VIEW brenloft.presence AS
  SELECT beacon, bool_or(gateway.online AND last.event <> 'lost') AS home, max(heard) AS changed
  FROM (SELECT DISTINCT ON (beacon, gateway) beacon, gateway, event, heard
        FROM brenloft.record
        WHERE event IN ('found', 'lost')
        ORDER BY beacon, gateway, heard DESC, seq DESC) AS last
  JOIN brenloft.gateway USING (gateway)
  GROUP BY beacon;
CREATE INDEX IF NOT EXISTS record_of_presence ON brenloft.record (beacon, gateway, heard DESC, seq DESC)
  WHERE event IN ('found', 'lost');
