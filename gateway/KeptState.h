#pragma once

#include <optional>
#include <string>

#include "gateway/Sink.h"

namespace brenloft {

/// What must outlive the process, such as an alarm's: a text under two names.
struct KeptState {
  std::string owner;                  ///< a rule's identity
  std::string subject;                ///< a beacon's identifier
  std::optional<std::string> text{};  ///< none: forgotten

  friend bool operator==(const KeptState&, const KeptState&) = default;
};

/// A sink that also keeps states. What it kept is read back through `HistoryReader::states`.
class KeepingSink : public Sink {
 public:
  using Sink::accept;
  /// The record and the state that it made reach the medium together, or neither does.
  virtual void accept(const Record& record, const KeptState& state) = 0;
  /// A state that no record tells of.
  virtual void keep(const KeptState& state) = 0;
};

}  // namespace brenloft
