// The management service on Linux: the three disk, partition and logical
// disk queries the program asks, answered from sysfs and the drive letters.
#include "platform/linux/devices.h"
#include "platform/portable/management_query.h"

namespace linuxbk {

namespace {

constexpr const char* kDrivePrefix = "\\\\.\\PHYSICALDRIVE";

} // namespace

std::optional<std::vector<platform::ManagementObject>> LinuxDevices::ExecQuery(const std::string& moniker,
                                                                               const std::string& query) {
    const auto parsed = portable::ParseManagementQuery(moniker, query);
    if (!parsed) return std::nullopt;
    std::vector<DiskInfo> all;
    for (auto& d : disks())
        if (d.kind == DiskKind::Disk) all.push_back(std::move(d));
    auto numberOf = [](const DiskInfo& d) { return std::to_string(Sysfs::DeviceNumber(d.major, d.minor)); };
    auto partitionsOf = [&](const DiskInfo& d) {
        std::vector<std::pair<std::string, std::string>> out; // (DeviceID, block name)
        const auto parts = map_.sys().Partitions(d.name);
        if (parts.empty()) {
            out.emplace_back("Disk #" + numberOf(d) + ", Partition #0", d.name);
        } else {
            for (const auto& p : parts)
                out.emplace_back("Disk #" + numberOf(d) + ", Partition #" + std::to_string(p.partition - 1), p.name);
        }
        return out;
    };

    std::vector<platform::ManagementObject> answer;
    const std::string key = vb::UCase(parsed->key);
    switch (parsed->kind) {
    case portable::ManagementQuery::Kind::DiskDrives:
        for (const auto& d : all) answer.push_back({Sysfs::Caption(d), kDrivePrefix + numberOf(d), pnpOf(d)});
        break;
    case portable::ManagementQuery::Kind::PartitionsOfDisk:
        for (const auto& d : all)
            if (vb::UCase(kDrivePrefix + numberOf(d)) == key)
                for (const auto& [id, block] : partitionsOf(d)) answer.push_back({{}, id, {}});
        break;
    case portable::ManagementQuery::Kind::LogicalDisksOfPartition:
        for (const auto& d : all)
            for (const auto& [id, block] : partitionsOf(d))
                if (vb::UCase(id) == key)
                    for (const auto& drive : map_.Drives())
                        if (drive.block && drive.block->name == block)
                            answer.push_back({{}, std::string(1, drive.letter) + ":", {}});
        break;
    }
    return answer;
}

} // namespace linuxbk
