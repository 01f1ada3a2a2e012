#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace brenloft {

/// Installs the platform for a command that works on the store and hears nothing, on virtual time.
/// `container` holds the store; empty: the application's data folder.
void installForStore(const std::filesystem::path& container);

/// The store file of the installed platform, which was installed with this container; nothing when there is
/// none yet. Makes neither file nor folder. Throws `Failure` when a container that was named is no folder.
std::optional<std::filesystem::path> storeIn(const std::filesystem::path& container);

/// From here on, when the library ends the process because of the store, one line says why and the exit
/// status is `storeUnusable`.
void tellFatalStoreProblems();

/// Asks on the terminal; true without asking when `yes`. Throws `Failure` when there is no terminal to ask
/// on.
bool confirmed(const std::string& question, bool yes);

}  // namespace brenloft
