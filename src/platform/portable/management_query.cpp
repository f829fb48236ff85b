#include "platform/portable/management_query.h"

#include "core/vb.h"

namespace portable {

namespace {

// The value between "='" and "'}" of an object path in a query.
std::string KeyValue(const std::string& query) {
    const auto open = query.find("='");
    const auto close = query.find("'}", open == std::string::npos ? 0 : open);
    if (open == std::string::npos || close == std::string::npos) return {};
    return query.substr(open + 2, close - open - 2);
}

} // namespace

std::optional<ManagementQuery> ParseManagementQuery(const std::string& moniker, const std::string& query) {
    if (!vb::UCase(moniker).starts_with("WINMGMTS:")) return std::nullopt;
    const std::string q = vb::UCase(query);
    using Kind = ManagementQuery::Kind;
    if (q.starts_with("SELECT ") && q.find(" FROM WIN32_DISKDRIVE") != std::string::npos)
        return ManagementQuery{Kind::DiskDrives, {}};
    if (q.starts_with("ASSOCIATORS OF {WIN32_DISKDRIVE.DEVICEID=") &&
        q.find("ASSOCCLASS = WIN32_DISKDRIVETODISKPARTITION") != std::string::npos)
        return ManagementQuery{Kind::PartitionsOfDisk, KeyValue(query)};
    if (q.starts_with("ASSOCIATORS OF {WIN32_DISKPARTITION.DEVICEID=") &&
        q.find("ASSOCCLASS = WIN32_LOGICALDISKTOPARTITION") != std::string::npos)
        return ManagementQuery{Kind::LogicalDisksOfPartition, KeyValue(query)};
    return std::nullopt;
}

} // namespace portable
