#pragma once

namespace zephyl {

/// Returns whether an emoji font is installed below "fonts" in the data directories. Checks the
/// names of at most 20,000 files and directories and reads no font, which takes a few milliseconds.
/// Callable from any thread.
bool hasEmojiFont();

}  // namespace zephyl
