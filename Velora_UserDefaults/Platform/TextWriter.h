#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace velora {

/// Writes texts one behind the other into memory that is known to be large enough. Internal.
///
/// For texts of some bytes, as a log line's columns are: those are copied in place, because a call of
/// memcpy(3) costs several times what it copies then.
class TextWriter {
public:
    /// The most bytes that a number takes.
    static constexpr std::size_t maximumNumberSize = 20;

    explicit TextWriter(char* at) noexcept : at_(at) {}

    /// Where the next text goes.
    char* position() const noexcept { return at_; }
    /// Goes on `size` bytes further, which somebody else has written.
    void skip(std::size_t size) noexcept { at_ += size; }

    void append(char character) noexcept { *at_++ = character; }

    void append(std::string_view text) noexcept {
        const std::size_t size = text.size();
        const char* const from = text.data();
        if (size > 32) {
            std::memcpy(at_, from, size);
        } else if (size >= 16) {
            copyEnds<16>(from, size);
        } else if (size >= 8) {
            copyEnds<8>(from, size);
        } else if (size >= 4) {
            copyEnds<4>(from, size);
        } else if (size > 0) {
            at_[0] = from[0];
            at_[size / 2] = from[size / 2];
            at_[size - 1] = from[size - 1];
        }
        at_ += size;
    }

    void append(std::int64_t number) noexcept { at_ = std::to_chars(at_, at_ + maximumNumberSize, number).ptr; }
    void append(std::uint64_t number) noexcept { at_ = std::to_chars(at_, at_ + maximumNumberSize, number).ptr; }

private:
    /// Copies the first and the last `Block` bytes, which overlap as the size demands.
    template <std::size_t Block>
    void copyEnds(const char* from, std::size_t size) noexcept {
        struct Bytes {
            char bytes[Block];
        };
        Bytes first;
        Bytes last;
        std::memcpy(&first, from, Block);
        std::memcpy(&last, from + size - Block, Block);
        std::memcpy(at_, &first, Block);
        std::memcpy(at_ + size - Block, &last, Block);
    }

    char* at_;
};

}  // namespace velora
