#pragma once
// The management service (WMI): queries over the physical disks, their
// partitions and the logical disks on them.
#include <optional>
#include <string>
#include <vector>

namespace platform {

// One object of a query's answer, with the properties the logic reads
// (Win32_DiskDrive: Caption, DeviceID, PNPDeviceID; Win32_DiskPartition and
// Win32_LogicalDisk: DeviceID). Properties the class lacks stay empty.
struct ManagementObject {
    std::string Caption;
    std::string DeviceID;
    std::string PNPDeviceID;
};

class Management {
public:
    virtual ~Management() = default;

    // Binds to the service named by the moniker ("winmgmts:...!//.") and runs
    // one WQL query ("SELECT ... FROM Win32_DiskDrive" or "ASSOCIATORS OF
    // {...} WHERE AssocClass = ..."). The objects in the service's order;
    // nothing when the service cannot be reached or the query fails.
    virtual std::optional<std::vector<ManagementObject>> ExecQuery(const std::string& moniker,
                                                                   const std::string& query) = 0;
};

} // namespace platform
