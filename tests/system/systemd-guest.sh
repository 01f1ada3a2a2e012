#!/bin/sh
# In the machine: what check.service runs.
modprobe -a virtio_pci virtio_rng 9pnet_virtio 9p bluetooth hci_vhci
mkdir -p /out
mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144,cache=none out /out || exit 1
cd /check || exit 1
./script > /out/test.log 2>&1
status=$?
journalctl --no-pager > /out/journal.log 2>&1
echo $status > /out/exit-code
sync
