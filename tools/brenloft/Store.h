#pragma once

#include <filesystem>
#include <string>

namespace brenloft {

/// Installs the platform for a command that works on the store and hears nothing, on virtual time.
/// `container` holds the store; empty: the application's data folder.
void installForStore(const std::filesystem::path& container);

/// Tries the store of the installed platform; throws `Failure` when it cannot be used.
void requireStore();

/// Asks on the terminal; true without asking when `yes`. Throws `Failure` when there is no terminal to ask
/// on.
bool confirmed(const std::string& question, bool yes);

}  // namespace brenloft
