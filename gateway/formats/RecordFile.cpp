#include "gateway/formats/RecordFile.h"

#include <string>

namespace brenloft {

void RecordFile::accept(const Record& record) {
  std::string lines;
  const uint64_t untold = dropped_ - told_;
  if (untold > 0)
    lines_.append(
        lines,
        BeaconEvent{.beacon = {}, .heard = heardAt(record), .kind = BeaconEvent::Kind::gap, .count = untold},
        {});
  const BeaconId* beacon = beaconOf(record);
  lines_.append(lines, record, beacon != nullptr ? labels_(*beacon) : Label{});
  if (file_->write(lines))
    told_ = dropped_;
  else
    ++dropped_;
}

}  // namespace brenloft
