#pragma once
// The management queries the program asks, recognised the same way by every
// backend that answers them itself: the disk drives, the partitions of one
// disk drive, and the logical disks on one partition.
#include <optional>
#include <string>

namespace portable {

struct ManagementQuery {
    enum class Kind {
        DiskDrives,              // SELECT ... FROM Win32_DiskDrive
        PartitionsOfDisk,        // ASSOCIATORS OF {Win32_DiskDrive.DeviceID='key'} ... Win32_DiskDriveToDiskPartition
        LogicalDisksOfPartition, // ASSOCIATORS OF {Win32_DiskPartition.DeviceID='key'} ... Win32_LogicalDiskToPartition
    };
    Kind kind = Kind::DiskDrives;
    std::string key; // the DeviceID between "='" and "'}", as written
};

// The query; nothing when the moniker is not the management service's
// ("winmgmts:...", any case) or the query is none of the three.
std::optional<ManagementQuery> ParseManagementQuery(const std::string& moniker, const std::string& query);

} // namespace portable
