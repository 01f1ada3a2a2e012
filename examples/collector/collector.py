#!/usr/bin/env python3
"""Writes what a fleet of gateways publishes into PostgreSQL.

    psql -f schema.sql fleet
    ./collector.py --broker broker.example --database dbname=fleet --id collector-1

Start as many as you like, each with its own --id: they share the work. A message is acknowledged after its rows are
committed, and the broker keeps what a collector missed for a day; so nothing is lost when one is killed, and what comes
twice is ignored by its key. Debian: python3-paho-mqtt, python3-psycopg2.
"""
import argparse
import json
import signal
import sys
import time

import paho.mqtt.client as mqtt
import psycopg2
from paho.mqtt.packettypes import PacketTypes

INSERT_RECORDS = """
INSERT INTO brenloft.record (store, seq, gateway, heard, event, beacon, name, place, rssi, temperature, humidity,
                             battery, emergency, accel, text, historical, synced, sent)
SELECT (batch->>'store')::uuid, r.seq, batch->>'gw', r.time, r.event, r.id, r.name, r.place, r.rssi, r.temperature,
       r.humidity, r.battery, r.emergency, r.accel, r.text, (batch->>'historical')::boolean,
       (batch->'clock'->>'synced')::boolean, (batch->>'sent')::timestamptz
FROM (SELECT %s::jsonb AS batch) AS message, jsonb_to_recordset(batch->'records') AS r(
  seq bigint, time timestamptz, event text, id text, name text, place text, rssi smallint, temperature numeric,
  humidity numeric, battery smallint, emergency smallint, accel integer[], text text)
WHERE r.seq IS NOT NULL
ON CONFLICT DO NOTHING"""

INSERT_GAPS = """
INSERT INTO brenloft.gap (store, first, last, count)
SELECT (batch->>'store')::uuid, r.first, r.last, r.count
FROM (SELECT %s::jsonb AS batch) AS message,
     jsonb_to_recordset(batch->'records') AS r(seq bigint, first bigint, last bigint, count bigint)
WHERE r.seq IS NULL
ON CONFLICT DO NOTHING"""

SET_GATEWAY = """
INSERT INTO brenloft.gateway AS g (gateway, online) VALUES (%s, %s)
ON CONFLICT (gateway) DO UPDATE SET online = excluded.online, since = now() WHERE g.online <> excluded.online"""


class Database:
    """Runs one transaction for each message, and waits for a database that is away."""

    def __init__(self, source):
        self.source, self.connection = source, None

    def run(self, *statements):
        while True:
            try:
                self.connection = self.connection or psycopg2.connect(self.source)
                with self.connection, self.connection.cursor() as cursor:
                    for statement, values in statements:
                        cursor.execute(statement, values)
                return
            except (psycopg2.OperationalError, psycopg2.InterfaceError) as problem:
                print(f"collector: {str(problem).strip()}; trying again", file=sys.stderr)
                self.connection = None
                time.sleep(2)

    def write(self, message):
        try:
            if message.topic.endswith("/status"):
                self.run((SET_GATEWAY, (message.topic.split("/")[1], message.payload == b"online")))
                return
            text = message.payload.decode()
            if json.loads(text)["v"] != 1:
                raise ValueError("another version")
            self.run((INSERT_RECORDS, (text,)), (INSERT_GAPS, (text,)))
        except (ValueError, LookupError, TypeError, psycopg2.Error) as problem:
            refused = "INSERT INTO brenloft.refused (topic, payload, reason) VALUES (%s, %s, %s)"
            self.run((refused, (message.topic, psycopg2.Binary(message.payload), str(problem))))


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--broker", default="localhost")
    options.add_argument("--port", type=int, default=1883)
    options.add_argument("--ca", help="certificates to trust; with it, TLS")
    options.add_argument("--login", help="a file: the user in the first line, the password in the second")
    options.add_argument("--database", required=True, help="as libpq has it, such as dbname=fleet")
    options.add_argument("--group", default="collectors", help="those of one group share the messages")
    options.add_argument("--id", required=True, help="this collector's name; the same after a restart")
    given = options.parse_args()

    database = Database(given.database)
    client = mqtt.Client(given.id, protocol=mqtt.MQTTv5)
    if given.ca:
        client.tls_set(given.ca)
    if given.login:
        with open(given.login, encoding="utf-8") as file:
            client.username_pw_set(*file.read().split("\n")[:2])

    def connected(_client, _data, _flags, reason, _properties):
        print(f"collector: {reason}", file=sys.stderr)
        client.subscribe([(f"$share/{given.group}/brenloft/+/batch", 1), ("brenloft/+/status", 1)])

    client.on_connect = connected
    # The acknowledgement follows when this returns.
    client.on_message = lambda _client, _data, message: database.write(message)
    signal.signal(signal.SIGTERM, lambda *_: client.disconnect())
    properties = mqtt.Properties(PacketTypes.CONNECT)
    properties.SessionExpiryInterval = 86400
    client.connect_async(given.broker, given.port, clean_start=False, properties=properties)
    client.loop_forever(retry_first_connection=True)


if __name__ == "__main__":
    main()
