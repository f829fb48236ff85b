// Storage I/O controls and the device manager: volumes and device interfaces
// opened with CreateFileA, asked with DeviceIoControl; device-interface sets
// from setupapi; the device tree and the eject request from cfgmgr32.
#include "platform/win32/raii.h"

#include <cfgmgr32.h>
#include <setupapi.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/win32/backend.h"

namespace win32 {

namespace {

GUID ToGuid(const platform::Guid& g) {
    GUID out;
    out.Data1 = g.Data1;
    out.Data2 = g.Data2;
    out.Data3 = g.Data3;
    std::copy(g.Data4.begin(), g.Data4.end(), out.Data4);
    return out;
}

platform::Guid FromGuid(const GUID& g) {
    platform::Guid out;
    out.Data1 = g.Data1;
    out.Data2 = g.Data2;
    out.Data3 = g.Data3;
    std::copy(std::begin(g.Data4), std::end(g.Data4), out.Data4.begin());
    return out;
}

HDEVINFO ToSet(platform::DevInfoSet set) { return reinterpret_cast<HDEVINFO>(set); }

// The system's record for an interface the caller holds.
SP_DEVICE_INTERFACE_DATA ToInterfaceData(const platform::SpDeviceInterfaceData& data) {
    SP_DEVICE_INTERFACE_DATA out{};
    out.cbSize = sizeof out;
    out.InterfaceClassGuid = ToGuid(data.InterfaceClassGuid);
    out.Flags = data.Flags;
    out.Reserved = static_cast<ULONG_PTR>(data.Reserved);
    return out;
}

} // namespace

// --- storage ---

platform::Handle Storage::CreateFileA(const std::string& fileName, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                      std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes) {
    HANDLE h = ::CreateFileA(fileName.c_str(), desiredAccess, shareMode, nullptr, creationDisposition,
                             flagsAndAttributes, nullptr);
    return h == INVALID_HANDLE_VALUE ? platform::kInvalidHandleValue : FromHandle(h);
}

bool Storage::DeviceIoControl(platform::Handle device, std::uint32_t ioControlCode,
                              std::span<const std::uint8_t> inBuffer, std::span<std::uint8_t> outBuffer,
                              std::uint32_t& bytesReturned) {
    DWORD returned = 0;
    // The input is not written by the system; the API takes it without const.
    const BOOL ok = ::DeviceIoControl(
        ToHandle(device), ioControlCode, inBuffer.empty() ? nullptr : const_cast<std::uint8_t*>(inBuffer.data()),
        static_cast<DWORD>(inBuffer.size()), outBuffer.empty() ? nullptr : outBuffer.data(),
        static_cast<DWORD>(outBuffer.size()), &returned, nullptr);
    bytesReturned = returned;
    return ok != FALSE;
}

bool Storage::CloseHandle(platform::Handle handle) { return ::CloseHandle(ToHandle(handle)) != FALSE; }

std::uint32_t Storage::QueryDosDeviceA(const std::string& deviceName, std::span<char> targetPath) {
    return ::QueryDosDeviceA(deviceName.c_str(), targetPath.data(), static_cast<DWORD>(targetPath.size()));
}

// --- device manager ---

platform::DevInfoSet Devices::SetupDiGetClassDevsA(const platform::Guid& classGuid, std::uint32_t flags) {
    const GUID guid = ToGuid(classGuid);
    HDEVINFO set = ::SetupDiGetClassDevsA(&guid, nullptr, nullptr, flags);
    return set == INVALID_HANDLE_VALUE ? platform::kInvalidHandleValue : reinterpret_cast<platform::DevInfoSet>(set);
}

bool Devices::SetupDiEnumDeviceInterfaces(platform::DevInfoSet set, const platform::Guid& classGuid,
                                          std::uint32_t memberIndex, platform::SpDeviceInterfaceData& data) {
    const GUID guid = ToGuid(classGuid);
    SP_DEVICE_INTERFACE_DATA found{};
    found.cbSize = sizeof found;
    if (!::SetupDiEnumDeviceInterfaces(ToSet(set), nullptr, &guid, memberIndex, &found)) return false;
    data.InterfaceClassGuid = FromGuid(found.InterfaceClassGuid);
    data.Flags = found.Flags;
    data.Reserved = static_cast<std::uintptr_t>(found.Reserved);
    return true;
}

// The caller's detail buffer holds its own cbSize, then the path at offset 4.
// The system gets a heap record of the same size with its own cbSize, and the
// path is copied back behind the caller's cbSize.
bool Devices::SetupDiGetDeviceInterfaceDetailA(platform::DevInfoSet set, const platform::SpDeviceInterfaceData& data,
                                               std::span<std::uint8_t> detail, std::uint32_t* requiredSize,
                                               platform::SpDevinfoData* devInfo) {
    SP_DEVICE_INTERFACE_DATA iface = ToInterfaceData(data);
    SP_DEVINFO_DATA info{};
    info.cbSize = sizeof info;
    DWORD needed = 0;
    BOOL ok = FALSE;
    if (detail.size() <= platform::kDetailDevicePathOffset) {
        ok = ::SetupDiGetDeviceInterfaceDetailA(ToSet(set), &iface, nullptr, 0, &needed,
                                                devInfo != nullptr ? &info : nullptr);
    } else {
        HeapBuffer buffer(std::max<std::size_t>(detail.size(), sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A)));
        if (buffer.get() == nullptr) return false;
        auto* record = static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(buffer.get());
        record->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
        ok = ::SetupDiGetDeviceInterfaceDetailA(ToSet(set), &iface, record, static_cast<DWORD>(detail.size()), &needed,
                                                devInfo != nullptr ? &info : nullptr);
        if (ok) {
            const std::size_t room = detail.size() - platform::kDetailDevicePathOffset;
            const std::size_t length = ::strnlen(record->DevicePath, room - 1);
            std::memcpy(detail.data() + platform::kDetailDevicePathOffset, record->DevicePath, length);
            detail[platform::kDetailDevicePathOffset + length] = 0;
        }
    }
    if (requiredSize != nullptr) *requiredSize = needed;
    if (ok && devInfo != nullptr) {
        devInfo->ClassGuid = FromGuid(info.ClassGuid);
        devInfo->DevInst = info.DevInst;
        devInfo->Reserved = static_cast<std::uintptr_t>(info.Reserved);
    }
    return ok != FALSE;
}

bool Devices::SetupDiDestroyDeviceInfoList(platform::DevInfoSet set) {
    return ::SetupDiDestroyDeviceInfoList(ToSet(set)) != FALSE;
}

std::uint32_t Devices::CM_Get_Parent(platform::DevInst& parent, platform::DevInst device, std::uint32_t flags) {
    DEVINST found = 0;
    const CONFIGRET result = ::CM_Get_Parent(&found, device, flags);
    parent = found;
    return result;
}

std::uint32_t Devices::CM_Request_Device_EjectW(platform::DevInst device, std::int32_t* vetoType,
                                                std::span<char16_t> vetoName, std::uint32_t flags) {
    PNP_VETO_TYPE veto = PNP_VetoTypeUnknown;
    std::vector<WCHAR> name(vetoName.size() + 1, 0);
    const CONFIGRET result = ::CM_Request_Device_EjectW(device, vetoType != nullptr ? &veto : nullptr,
                                                        vetoName.empty() ? nullptr : name.data(),
                                                        static_cast<ULONG>(vetoName.size()), flags);
    if (vetoType != nullptr) *vetoType = static_cast<std::int32_t>(veto);
    for (std::size_t i = 0; i < vetoName.size(); ++i) vetoName[i] = static_cast<char16_t>(name[i]);
    return result;
}

void Devices::Sleep(std::uint32_t milliseconds) { ::Sleep(milliseconds); }

} // namespace win32
