#pragma once
// The records the native services answer with, written the same way on every
// backend that builds them itself: the system handle table (a count, then
// one fixed-size entry per handle) and an object's name (a counted UTF-16
// string whose text follows the record).
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/bytes.h"
#include "platform/native.h"

namespace portable {

// Statuses and codes the native services answer that the boundary does not name.
inline constexpr platform::NtStatus kStatusInvalidInfoClass = static_cast<platform::NtStatus>(0xC0000003u);
inline constexpr std::uint32_t kStillActive = 259; // a thread's exit code while it runs

// The object type numbers the handle tables of these backends give (Windows
// numbers its types differently from version to version; the program finds
// the file type by the table's entry for a "NUL" handle of its own).
inline constexpr std::uint8_t kProcessTypeIndex = 7;
inline constexpr std::uint8_t kFileTypeIndex = 37;

// One row of the handle table.
struct HandleRow {
    std::uint32_t processId = 0; // the table shows its low 16 bits
    std::uint8_t typeIndex = 0;
    std::uint16_t handle = 0;
    std::uint64_t object = 0; // the kernel address of the object, 0 when unknown
};

// Writes the handle table of `count` rows into buffer: forEach(emit) calls
// emit(row) once for every row, in table order. returnLength gets the size
// the table needs; kStatusInfoLengthMismatch (buffer untouched, forEach not
// called) when it does not fit.
template <typename ForEachRow>
platform::NtStatus WriteHandleTable(std::span<std::uint8_t> buffer, std::size_t count, ForEachRow forEach,
                                    std::uint32_t& returnLength);

// Writes an object-name record for name (UTF-8, stored as UTF-16) into
// buffer, the text right after the record. returnLength gets the size needed;
// kStatusInfoLengthMismatch (buffer untouched) when it does not fit or the
// name is too long for a counted string.
platform::NtStatus WriteObjectName(std::span<std::uint8_t> buffer, std::string_view name, std::uint32_t& returnLength);

// Writes one entry of the handle table (the whole entry, zeros where the row has nothing).
void WriteHandleEntry(std::span<std::uint8_t> entry, const HandleRow& row);

template <typename ForEachRow>
platform::NtStatus WriteHandleTable(std::span<std::uint8_t> buffer, std::size_t count, ForEachRow forEach,
                                    std::uint32_t& returnLength) {
    namespace t = platform::handle_table;
    const std::size_t need = t::Size(count);
    returnLength = static_cast<std::uint32_t>(need < 0xFFFFFFFFu ? need : 0xFFFFFFFFu);
    if (buffer.size() < need) return platform::kStatusInfoLengthMismatch;
    platform::WriteLe32(buffer, t::kCount, static_cast<std::uint32_t>(count));
    std::size_t at = t::kEntries;
    forEach([&](const HandleRow& row) {
        if (at + t::kEntrySize > need) return; // more rows than counted: the table holds the counted ones
        WriteHandleEntry(buffer.subspan(at, t::kEntrySize), row);
        at += t::kEntrySize;
    });
    return platform::kStatusSuccess;
}

} // namespace portable
