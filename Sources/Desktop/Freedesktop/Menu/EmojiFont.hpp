#pragma once

namespace zephyl {

/// Returns whether a font for emoji is installed where fonts usually are: below "fonts" in the
/// data directories. Decides by the names of files and directories and reads no font. Looks at no
/// more than 20,000 of them, which takes a few milliseconds. Any thread.
bool hasEmojiFont();

}  // namespace zephyl
