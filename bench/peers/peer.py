"""Advertising reports of a btsnoop file, read by scapy: peer.py FILE
Prints their number and the microseconds of processor time that each took, reading the file not included."""
import struct
import sys
import time

from scapy.layers.bluetooth import EIR_Manufacturer_Specific_Data, HCI_Hdr

octets = open(sys.argv[1], "rb").read()
events, at = [], 16
while at + 24 <= len(octets):
    size = struct.unpack_from(">I", octets, at + 4)[0]
    events.append(octets[at + 24 : at + 24 + size])
    at += 24 + size

before = time.process_time()
found = sum(EIR_Manufacturer_Specific_Data in HCI_Hdr(event) for event in events)
taken = time.process_time() - before
assert found, "nothing was read"
print(len(events), f"{taken * 1e6 / len(events):.3f}")
