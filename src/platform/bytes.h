#pragma once
// Little-endian fields of the Windows records that cross the boundary as
// bytes (storage descriptors, handle tables, tray records, shell records):
// reading and writing unsigned integers of 1, 2, 4 or 8 bytes at an offset.
// Plain C++, header-only, so the logic and every backend can use it.
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>

namespace platform {

// The value at offset `at`; 0 when the field does not lie wholly within the bytes.
template <std::unsigned_integral T> constexpr T ReadLe(std::span<const std::uint8_t> bytes, std::size_t at) {
    if (at > bytes.size() || bytes.size() - at < sizeof(T)) return 0;
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i)
        value = static_cast<T>(value | static_cast<T>(bytes[at + i]) << (8 * i));
    return value;
}

// Writes the value at offset `at`, only the bytes of it that lie within the
// span (a record cut short by a small buffer keeps what fits).
template <std::unsigned_integral T> constexpr void WriteLe(std::span<std::uint8_t> bytes, std::size_t at, T value) {
    for (std::size_t i = 0; i < sizeof(T) && at + i < bytes.size(); ++i)
        bytes[at + i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i));
}

inline constexpr std::uint32_t ReadLe32(std::span<const std::uint8_t> bytes, std::size_t at) {
    return ReadLe<std::uint32_t>(bytes, at);
}
inline constexpr void WriteLe32(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
    WriteLe<std::uint32_t>(bytes, at, value);
}

} // namespace platform
