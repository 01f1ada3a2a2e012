"""Counts rows in batches on standard input, a batch a line, against numbers from 1 to the given one."""
import json
import sys

expected = int(sys.argv[1])
received = 0
seen = set()
for line in sys.stdin:
    try:
        batch = json.loads(line)
    except ValueError:
        continue  # the last line is still being written
    for record in batch["records"]:
        if "seq" in record:
            received += 1
            seen.add((batch["store"], record["seq"]))
numbers = {seq for _, seq in seen}
foreign = len(seen) - len(numbers & set(range(1, expected + 1)))
missing = expected - len(numbers & set(range(1, expected + 1)))
print(f"received {received}, different {len(seen)}, missing {missing}, foreign {foreign}"
      + (", complete" if missing == 0 and foreign == 0 else ""))
