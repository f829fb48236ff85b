// The simulated management service: the disk, partition and logical-disk
// queries, answered from the description's disks.
#include "platform/fake/hardware.h"

#include "core/vb.h"
#include "platform/fake/journal_text.h"
#include "platform/fake/machine.h"
#include "platform/portable/management_query.h"

namespace fake {

std::optional<std::vector<platform::ManagementObject>> Hardware::ExecQuery(const std::string& moniker,
                                                                           const std::string& query) {
    std::optional<std::vector<platform::ManagementObject>> answer;
    const auto parsed = managementReachable_ ? portable::ParseManagementQuery(moniker, query) : std::nullopt;
    if (parsed) {
        answer.emplace();
        switch (parsed->kind) {
        case portable::ManagementQuery::Kind::DiskDrives:
            for (const auto& disk : disks_) {
                const Node* device = node(disk.pnpDeviceID);
                if (device != nullptr && !device->present) continue; // ejected with its device
                answer->push_back({disk.caption, disk.deviceID, disk.pnpDeviceID});
            }
            break;
        case portable::ManagementQuery::Kind::PartitionsOfDisk:
            for (const auto& disk : disks_)
                if (vb::SameText(disk.deviceID, parsed->key))
                    for (const auto& p : disk.partitions) answer->push_back({{}, p.deviceID, {}});
            break;
        case portable::ManagementQuery::Kind::LogicalDisksOfPartition:
            for (const auto& disk : disks_)
                for (const auto& p : disk.partitions)
                    if (vb::SameText(p.deviceID, parsed->key))
                        for (const auto& l : p.logicalDisks)
                            if (machine_.FindDrive(l) != nullptr) answer->push_back({{}, l, {}});
            break;
        }
    }
    record("ExecQuery", {Quote(query)}, answer ? std::to_string(answer->size()) : "failed");
    return answer;
}

} // namespace fake
