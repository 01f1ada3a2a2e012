#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace brenloft {

/// Installs the platform for a command that works on the store and hears nothing, on virtual time.
/// `container` holds the store; empty: the application's data folder.
void installForStore(const std::filesystem::path& container);

/// The store file of the installed platform, which was installed with this container; nothing when there is
/// none yet. Makes neither file nor folder. Throws `Failure` when a container that was named is no folder.
std::optional<std::filesystem::path> storeIn(const std::filesystem::path& container);

/// The folder of a container, or the application's data folder for none.
std::filesystem::path folderOfContainer(const std::filesystem::path& container);

/// Prints what is missing in which folder, on standard error: another process may keep its log elsewhere.
void printEmpty(std::string_view what, const std::filesystem::path& container);

/// Prints what was wrong with the settings; for a command that succeeds. Where the store cannot be used, its
/// own line is enough.
void printSettingsProblems();

/// From here on, when the library ends the process because of the store, one line says why and the exit
/// status is `storeUnusable`. `beforeEnd` brings what is still kept back where it belongs; it has a second.
void printFatalStoreProblems(std::function<void()> beforeEnd = {});

/// Asks on the terminal; true without asking when `yes`. Throws `Failure` when there is no terminal to ask
/// on.
bool confirmed(const std::string& question, bool yes);

}  // namespace brenloft
