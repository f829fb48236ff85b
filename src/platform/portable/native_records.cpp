#include "platform/portable/native_records.h"

#include <algorithm>
#include <string>

#include "platform/portable/text.h"

namespace portable {

void WriteHandleEntry(std::span<std::uint8_t> entry, const HandleRow& row) {
    namespace t = platform::handle_table;
    std::fill(entry.begin(), entry.end(), std::uint8_t{0});
    platform::WriteLe(entry, t::kUniqueProcessId, static_cast<std::uint16_t>(row.processId & 0xFFFF));
    platform::WriteLe(entry, t::kObjectTypeIndex, row.typeIndex);
    platform::WriteLe(entry, t::kHandleValue, row.handle);
    if (row.object != 0) platform::WriteLe(entry, t::kObject, row.object);
}

platform::NtStatus WriteObjectName(std::span<std::uint8_t> buffer, std::string_view name, std::uint32_t& returnLength) {
    const std::u16string text = Utf8ToUtf16(name);
    const std::size_t bytes = text.size() * 2;
    const std::size_t need = platform::kObjectNameText + bytes + 2;
    returnLength = static_cast<std::uint32_t>(need);
    if (buffer.size() < need || bytes + 2 > 0xFFFF) return platform::kStatusInfoLengthMismatch;
    // UNICODE_STRING: Length (2), MaximumLength (2), padding, Buffer (8).
    platform::WriteLe(buffer, 0, static_cast<std::uint16_t>(bytes));
    platform::WriteLe(buffer, 2, static_cast<std::uint16_t>(bytes + 2));
    platform::WriteLe(buffer, 8, reinterpret_cast<std::uintptr_t>(buffer.data() + platform::kObjectNameText));
    for (std::size_t i = 0; i < text.size(); ++i)
        platform::WriteLe(buffer, platform::kObjectNameText + 2 * i, static_cast<std::uint16_t>(text[i]));
    platform::WriteLe(buffer, platform::kObjectNameText + bytes, std::uint16_t{0});
    return platform::kStatusSuccess;
}

} // namespace portable
