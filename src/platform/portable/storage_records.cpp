#include "platform/portable/storage_records.h"

#include <algorithm>

#include "platform/bytes.h"

namespace portable {

bool IsDevicePropertyQuery(std::span<const std::uint8_t> query) {
    return query.size() >= platform::kStoragePropertyQuerySize &&
           platform::ReadLe32(query, 0) == platform::kStorageDeviceProperty &&
           platform::ReadLe32(query, 4) == platform::kPropertyStandardQuery;
}

std::size_t WriteDeviceDescriptor(std::span<std::uint8_t> out, bool removable, std::uint32_t busType,
                                  std::uint8_t deviceType) {
    const auto d = out.first(std::min(out.size(), platform::kStorageDeviceDescriptorSize));
    std::fill(d.begin(), d.end(), std::uint8_t{0});
    platform::WriteLe32(d, platform::kDescriptorVersionOffset, platform::kStorageDeviceDescriptorSize);
    platform::WriteLe32(d, platform::kDescriptorSizeOffset, platform::kStorageDeviceDescriptorSize);
    platform::WriteLe<std::uint8_t>(d, 8, deviceType);
    platform::WriteLe<std::uint8_t>(d, platform::kDescriptorRemovableMediaOffset, removable ? 1 : 0);
    platform::WriteLe32(d, platform::kDescriptorBusTypeOffset, busType);
    return d.size();
}

bool WriteDeviceNumber(std::span<std::uint8_t> out, std::uint32_t deviceType, std::uint32_t number,
                       std::uint32_t partition) {
    if (out.size() < platform::kStorageDeviceNumberSize) return false;
    platform::WriteLe32(out, 0, deviceType);
    platform::WriteLe32(out, 4, number);
    platform::WriteLe32(out, 8, partition);
    return true;
}

} // namespace portable
