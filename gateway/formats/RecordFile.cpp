#include "gateway/formats/RecordFile.h"

#include <string>

namespace brenloft {

void RecordFile::accept(const Record& record) {
  std::string lines;
  if (dropped_ > 0)
    lines_.append(
        lines,
        BeaconEvent{
            .beacon = {}, .heard = heardAt(record), .kind = BeaconEvent::Kind::gap, .count = dropped_},
        {});
  const BeaconId* beacon = beaconOf(record);
  lines_.append(lines, record, beacon != nullptr ? labels_(*beacon) : Label{});
  if (file_->write(lines))
    dropped_ = 0;
  else
    ++dropped_;
}

}  // namespace brenloft
