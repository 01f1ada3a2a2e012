#pragma once

#include <filesystem>
#include <string>

namespace brenloft {

/// Where a file really is: behind symbolic links, whether something is there or not.
std::filesystem::path behindLinks(std::filesystem::path file);

/// Throws `Failure` when what an option names to be written is a file of a container (the store, the
/// settings, and what stands beside them), under whatever name, or a database. Containers are the one that
/// the command was given (empty: the application's data folder), that data folder, and a folder that holds a
/// store.
///
/// Call before a store is opened: closing a file drops every lock that this process holds on it.
void refuseContainerFile(const char* option, const std::filesystem::path& file,
                         const std::filesystem::path& container = {});

}  // namespace brenloft
