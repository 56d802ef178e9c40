#pragma once

#include <cstddef>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>

/// Questions about text that the standard library does not answer: paths as text, characters as a
/// reader sees them, canonical equality and UTF-8 validity.
///
/// All functions may be called from any thread at any time, also while static objects are being
/// destroyed. None of them throws. A view that is returned points into the argument.
namespace velora {

/// The text after the last slash of `path`; slashes at its end do not count: "/x/y/" gives "y".
/// A path of nothing but slashes gives "/", an empty one stays empty. Never allocates.
std::string_view lastPathComponent(std::string_view path);

/// Everything after the last slash of `path`, all of it where there is none: "/x/y" gives "y", "/x/y/" nothing.
/// Never allocates.
std::string_view textAfterLastSlash(std::string_view path);

/// The text after the last "." of the last component of `pathOrName`: "/x/a.b.log" gives "log".
/// Empty if there is no ".", if the only "." leads the name (".log") or if the name ends in one
/// ("a."). Whatever follows the dot is the extension, spaces included: "a.b c" gives "b c".
/// Never allocates.
std::string_view pathExtension(std::string_view pathOrName);

/// How many characters a reader sees in `utf8`: its extended grapheme clusters (UAX #29). Each
/// ill-formed sequence counts as one U+FFFD. ASCII costs one pass over the bytes; there CR LF is
/// the only cluster of two. Of text above 2 GiB that is not ASCII the code points are counted.
std::size_t userPerceivedCharacterCount(std::string_view utf8);

/// Whether two texts are canonically equivalent (UAX #15): equal once both are brought to
/// normalisation form C, so that "é" equals "e" followed by a combining acute accent. If either is
/// no valid UTF-8, or above 2 GiB, the bytes are compared.
bool canonicallyEqual(std::string_view left, std::string_view right);

/// Whether `text` is well-formed UTF-8 (RFC 3629): no surrogates, no overlong forms, nothing above
/// U+10FFFF, nothing cut off. Empty text is valid. ASCII is skipped a word at a time.
VELORA_EXPORT bool isValidUTF8(std::string_view text);

}  // namespace velora
