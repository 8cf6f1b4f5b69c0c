#pragma once

#include <string>

namespace kennly {

/// Appends to `content` what the open file `file` holds from where it stands to its end, going on
/// after interruptions by signals.
///
/// Returns false, with errno set, when it cannot be read to its end; then `content` ends with what
/// came before. Throws std::bad_alloc. The file stays its owner's. Any thread may call it.
bool ReadToEnd(int file, std::string& content);

}  // namespace kennly
