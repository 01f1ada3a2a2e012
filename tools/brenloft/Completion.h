#pragma once

#include <string>
#include <vector>

#include "tools/brenloft/CommandSettings.h"
#include "tools/brenloft/ExitStatus.h"

namespace brenloft {

/// What may stand in place of the last of these words, for a shell that completes it. A line each: the word,
/// a tab, what it means. A line that begins with a tab asks the shell for names itself: a tab, `file` or
/// `folder`, a tab, and what stands in front of them ("capture:").
ExitStatus runComplete(const std::vector<std::string>& words, const DeclareCommands& declare);

}  // namespace brenloft
