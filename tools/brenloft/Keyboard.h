#pragma once

#include <string>

namespace brenloft {

/// Single keys from the terminal that is standard input, as long as this program is in its foreground. The
/// terminal is as it was before whenever the program ends or is stopped, whatever ends it, but for SIGKILL.
///
/// Threads: one at a time.
class Keyboard {
 public:
  /// What was pressed since the last call; nothing without a terminal.
  static std::string pressed();
  /// The program was stopped and goes on: a shell has had the terminal meanwhile.
  static void takeAgain();
  /// A signal handler may call it.
  static void restore();

 private:
  static bool take();
};

}  // namespace brenloft
