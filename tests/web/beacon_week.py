"""A made-up week of beacons as a capture and its settings file, for the page's tests and for looking at it."""
import math
import random
import struct

MINUTE, HOUR, DAY = 60, 3600, 86400
EPOCH = 0x00DCDDB30F2F8000  # of btsnoop, in microseconds
EVERY = 5 * MINUTE  # one advertisement of each beacon
SPIKE = 19.25  # degrees, once

PLACES = {
    'Cold room 1': ['Milk, front', 'Milk, back', 'Cheese', 'Door'],
    'Cold room 2': ['Meat rail', 'Poultry fridge', 'Fish, on ice'],
    'Freezer': ['Freezer A', 'Ice cream'],
    'Loading bay': ['Dock 1', 'Dock 2', 'Staff tag 7'],
    'Office': ['Archive', '<img src=x onerror="document.title=1">', 'Server cupboard'],
}
BASE = {'Cold room 1': 3.2, 'Cold room 2': 2.4, 'Freezer': -20.5, 'Loading bay': 9, 'Office': 21}


class Beacon:
    def __init__(self, number, place, name):
        self.octets = bytes([0x7F, 0x11, number * 57 % 256, number * 91 % 256, number, 0xA0])
        self.id = '-'.join(f'{octet:02X}' for octet in self.octets)
        self.number, self.place, self.name = number, place, name
        self.battery = 9 if name == 'Server cupboard' else 40 + number
        self.drain = .75 if name == 'Server cupboard' else .05  # percent a day


def beacons(count=0):
    made = [(place, name) for place, names in PLACES.items() for name in names]
    made += [('Hall', f'Sensor {number}') for number in range(count - len(made))]
    return [Beacon(number, place, name) for number, (place, name) in enumerate(made)]


def is_heard(beacon, time, end):
    if beacon.name == 'Dock 2':
        return time < end - 2 * HOUR
    if beacon.name == 'Freezer A':
        return not end - 30 * HOUR < time < end - 29 * HOUR
    return not end - 6 * HOUR <= time < end - 5 * HOUR  # the radio


def temperature(beacon, time, end, chance):
    swing = .4 * math.sin(time / (35 + beacon.number) / MINUTE * 6.28) + chance.uniform(-.1, .1)
    if beacon.place in ('Loading bay', 'Office'):
        swing += 2 * math.sin(time / DAY * 6.28 - 2)
    if beacon.name == 'Poultry fridge' and time > end - 40 * MINUTE:
        swing += 6 * (1 - math.exp((end - 40 * MINUTE - time) / 1200))
    return BASE[beacon.place] + swing if beacon.place in BASE else 20 + swing


def frame(beacon, time, end, degrees):
    battery = round(beacon.battery + (end - time) / DAY * beacon.drain)
    emergency = int(beacon.name == 'Staff tag 7' and time > end - 10 * MINUTE)
    humidity = 70 - degrees
    return struct.pack('<hHBBB', round(degrees * 100), round(humidity * 100), 0, battery, emergency) + \
        beacon.octets + struct.pack('>hhh', 0, 0, 1000) + bytes(3)


def advertisement(beacon, manufacturer, rssi):
    data = bytes([2, 1, 6, 3, 3, 0x0F, 0x18, len(manufacturer) + 1, 0xFF]) + manufacturer
    report = bytes([0x02, 1, 0, 1]) + beacon.octets[::-1] + bytes([len(data)]) + data + struct.pack('b', rssi)
    return bytes([4, 0x3E, len(report)]) + report


def radio(state):
    content = b'brenloft radio state ' + bytes([state])
    return bytes([4, 0xFF, len(content)]) + content


def packet(time, octets):
    return struct.pack('>IIIIq', len(octets), len(octets), 3, 0, round(time * 1e6) + EPOCH) + octets


def write_capture(path, end, days=7, count=0, every=EVERY):
    chance, all_of_them = random.Random(1), beacons(count)
    spike = end - 3 * DAY
    with open(path, 'wb') as file:
        file.write(b'btsnoop\0' + struct.pack('>II', 1, 1002))
        for start in range(end - days * DAY, end, every):
            if start == end - 6 * HOUR:
                file.write(packet(start - 1, radio(4)))
            if start == end - 5 * HOUR:
                file.write(packet(start - 1, radio(5)))
            for beacon in all_of_them:
                time = start + beacon.number * .5
                if not is_heard(beacon, time, end):
                    continue
                degrees = temperature(beacon, time, end, chance)
                if beacon.name == 'Poultry fridge' and start == spike:
                    degrees = SPIKE
                rssi = -50 - beacon.number % 30 + chance.randint(-4, 4)
                file.write(packet(time, advertisement(beacon, frame(beacon, time, end, degrees), rssi)))
    return spike


def write_settings(path, count=0):
    with open(path, 'w', encoding='utf-8') as file:
        for beacon in beacons(count):
            name = beacon.name.replace('"', '\\"')
            file.write(f'[beacon."{beacon.id}"]\nname = "{name}"\nplace = "{beacon.place}"\nexpected-interval = "5m"\n')
        for place in ('Cold room 1', 'Cold room 2'):
            file.write(f'[[alarm]]\nname = "{place} warm"\nplace = "{place}"\nquantity = "temperature"\n'
                       'above = 5.0\nfor = "10m"\n')
