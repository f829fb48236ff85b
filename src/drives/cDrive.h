#pragma once
// cDrive: the program's drive inventory. It scans the logical drives and
// records the removable disks and hard disks among them, holds the current
// drive (entry "0" of the root list once a drive has been chosen), asks the
// platform about one drive, and fills the size lines and usage bar of the
// details panel for the current drive.
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/fwd.h"
#include "drives/keyed_list.h"

namespace drives {

inline constexpr const char* kRemovableDisk = "Removable disk";
inline constexpr const char* kHardDisk = "Hard disk";

class cDrive {
public:
    explicit cDrive(app::Program& program);

    // Measures a drive: sets TotalSpace and TotalFreeSpace (0 when it cannot be read).
    void mp_GetDiskSpace(const std::string& sDrive);
    double TotalSpace() const { return m_TotalSpace; }
    double TotalFreeSpace() const { return m_TotalFreeSpace; }
    // Sets the volume label; the platform's answer is not examined.
    void mp_SetDriveName(const std::string& Drive, const std::string& Name);
    // Scans the logical drives into the type and root lists, then rebuilds the
    // USB information list.
    void mp_GetDriveTyps();
    // The volume label of Drive; also sets mp_FileSystem.
    std::string mp_GetDriveName(const std::string& Drive);
    // Opens sPath in the shell when it exists.
    void OpenDir(const std::string& sPath);
    void RemoveUSB_Info();
    void ChooseUSB_Info(std::string& sItem);
    void ChooseUSB_Info() {
        std::string none;
        ChooseUSB_Info(none);
    }
    // Shows the current drive's size, free and used space and its usage bar.
    void GetDriveCapacity();
    void SetUSB_Info();

    std::int32_t p_GetDT_Count() const { return m_DriveTyps.Count(); }
    std::string p_GetDriveTyps(const std::string& Key) const { return m_DriveTyps.ItemOrEmpty(Key); }
    bool p_SetDriveTyps(const std::string& Key, const std::string& sNew) { return m_DriveTyps.Add(Key, sNew); }
    void p_Del_DriveTyps() { m_DriveTyps.Clear(); }
    std::int32_t p_GetDL_Count() const { return m_DriveLetters.Count(); }
    // Collects the folders under sStartPath (and under them when bRecurse) into
    // sFolders from lIndex on; iFound gets this call's count so far for each.
    std::int32_t GetAllFiles(std::string sStartPath, std::vector<std::string>& sFolders,
                             std::vector<std::int16_t>& iFound, bool bRecurse, std::int32_t& lIndex);
    std::string p_GetDriveLetters(const std::string& Key) const { return m_DriveLetters.ItemOrEmpty(Key); }
    // Appends a backslash when sNew does not end in one; false when Key is taken.
    bool p_SetDriveLetters(const std::string& Key, std::string sNew);
    void p_Del_DriveLetters() { m_DriveLetters.Clear(); }
    bool p_SetUSBInfos(const std::string& Key, const std::string& sNew) { return m_USBInfos.Add(Key, sNew); }
    std::string p_GetUSBInfos(const std::string& Key) const { return m_USBInfos.ItemOrEmpty(Key); }
    std::int32_t p_USBInfosCount() const { return m_USBInfos.Count(); }
    const std::string& mp_FileSystem() const { return m_FileSystem; }
    std::string mp_StandardPfad();
    void mp_StandardPfad(const std::string& sNewValue);

    // An unsigned little-endian number of 8 bytes, in double precision.
    static double mp_BytesToDouble(std::span<const std::uint8_t, 8> bytes);
    // True only for a folder with no further attribute or a file with only the
    // archive attribute that a directory search finds.
    bool mp_PathExists(const std::string& path);

private:
    void mp_ReadUSBInfos();
    // Loads Connect.ico from the program's folder; 0 when it cannot be loaded.
    std::uintptr_t LoadConnectIcon();
    void GiveToTray(std::uintptr_t icon);

    app::Program& prog_;
    KeyedList m_DriveTyps;
    KeyedList m_DriveLetters;
    KeyedList m_USBInfos;
    double m_TotalSpace = 0;
    double m_TotalFreeSpace = 0;
    std::string m_StandardPfad;
    bool m_PfadValid = true;
    std::string m_FileSystem;
};

} // namespace drives
