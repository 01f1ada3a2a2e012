#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>

#include "platform/bluetooth/AdvertisingReport.h"
#include "tools/brenloft/RunLoop.h"

namespace brenloft {

/// What a source tells beside its reports, on any thread, and what it is told. Each may be left out.
struct SourceEvents {
  std::function<void()> onEnd;                           ///< nothing more will come
  std::function<void(std::string_view line)> onMessage;  ///< one line for people
  std::function<void(uint64_t position, uint64_t size)> onProgress;
  std::stop_token stop;  ///< ends the wait for a pipe that brings nothing
};

/// Where reports come from, and the clock that belongs to it.
struct Source {
  std::unique_ptr<RunLoop> loop;
  std::shared_ptr<platform::AdvertisingReportSource> reports;
  bool isRadio = false;  ///< states are worth telling, and the air has gaps
  std::string capture;   ///< the file that is read, if any
};

/// Opens what `--source` names: `capture:FILE[?paced]`, `demo[?paced]`, or a radio (`auto`, `bluez…`, `hci…`,
/// `h4…`). Throws `Failure` with the status that belongs to the reason.
Source openSource(const std::string& address, SourceEvents events);

/// The file of `capture:FILE` when it is to be read without a pace; else "".
std::string captureFileOf(const std::string& address);

/// Whether all that there is to hear can be read at once: nobody waits for a part of it.
bool isReadAtOnce(const std::string& address);

/// The same source as it happens, not all of it at once.
std::string pacedSource(const std::string& address);

/// Whether its beacons are made up.
bool isDemo(const std::string& address);

/// For the help text: every form that `openSource` takes.
extern const char* const kSourceForms;

}  // namespace brenloft
