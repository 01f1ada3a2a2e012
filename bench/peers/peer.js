// Advertising reports of a btsnoop file, read by one of two packages: peer.js noble|advlib FOLDER FILE
// Prints their number and the microseconds of processor time that each took, reading the file not included.
const fs = require('fs');
const { EventEmitter } = require('events');
const Module = require('module');
const path = require('path');

const [, , peer, folder, file] = process.argv;
const from = Module.createRequire(path.join(folder, 'package.json'));

// Events from the subevent's parameters on: number of reports, then the reports.
function events() {
  const octets = fs.readFileSync(file);
  const found = [];
  for (let at = 16; at + 24 <= octets.length; ) {
    const size = octets.readUInt32BE(at + 4);
    const packet = octets.subarray(at + 25, at + 24 + size); // without its type
    if (packet[0] === 0x3e && packet[2] === 0x02) found.push(packet.subarray(3));
    at += 24 + size;
  }
  return found;
}

function noble() {
  // The driver of a radio, which is not what is measured.
  const load = Module._load;
  Module._load = (name, ...rest) =>
    name === '@stoprocent/bluetooth-hci-socket' ? { loadDriver() {} } : load(name, ...rest);
  const Hci = from('@stoprocent/noble/lib/hci-socket/hci.js');
  const Gap = from('@stoprocent/noble/lib/hci-socket/gap.js');
  process.env.NOBLE_REPORT_ALL_HCI_EVENTS = '1';
  const hci = Object.assign(Object.create(Hci.prototype), new EventEmitter());
  let count = 0;
  new Gap(hci).on('discover', (status, address, type, connectable, advertisement) => {
    if (advertisement.manufacturerData) ++count;
  });
  return { take: (event) => hci.processLeAdvertisingReport(event[0], event.subarray(1)), count: () => count };
}

function advlib() {
  const parser = from('advlib-ble');
  let count = 0;
  return {
    take(event) {
      const data = event.subarray(10, 10 + event[9]);
      if (parser.process(data, [], { isPayloadOnly: true }).manufacturerSpecificData) ++count;
    },
    count: () => count,
  };
}

const { take, count } = { noble, advlib }[peer]();
const all = events();
const before = process.cpuUsage();
for (const event of all) take(event);
const { user, system } = process.cpuUsage(before);
if (count() === 0) throw new Error('nothing was read');
console.log(all.length, ((user + system) / all.length).toFixed(3));
