#include "drives/cDrive.h"

#include <array>
#include <cmath>
#include <string_view>

#include "core/program.h"
#include "core/vb.h"
#include "ui/cProgressBar.h"
#include "ui/cTray.h"

namespace drives {

using app::Ctl;

cDrive::cDrive(app::Program& program) : prog_(program) {}

void cDrive::mp_GetDiskSpace(const std::string& sDrive) {
    std::array<std::uint8_t, 8> available{}, total{}, totalFree{};
    // The platform's answer is not examined: on failure the buffers stay zero.
    prog_.sys.volumes.GetDiskFreeSpaceExA(sDrive, available, total, totalFree);
    m_TotalSpace = mp_BytesToDouble(total);
    m_TotalFreeSpace = mp_BytesToDouble(totalFree);
}

void cDrive::mp_SetDriveName(const std::string& Drive, const std::string& Name) {
    prog_.sys.volumes.SetVolumeLabelA(Drive, Name);
}

void cDrive::mp_GetDriveTyps() {
    // 64 characters hold 15 roots and the closing NUL. With more drives the
    // platform leaves the buffer as it was (all spaces) and nothing is recorded.
    std::array<char, 64> buffer;
    buffer.fill(' ');
    prog_.sys.volumes.GetLogicalDriveStringsA(buffer);

    m_DriveTyps.Clear();
    m_DriveLetters.Clear();

    std::string_view rest(buffer.data(), buffer.size());
    for (;;) {
        const auto nul = rest.find('\0');
        if (nul == std::string_view::npos) break;
        const std::string root(rest.substr(0, nul));
        rest.remove_prefix(nul + 1);
        if (root.empty()) break; // the second NUL closes the list

        const char* typeName = nullptr;
        switch (prog_.sys.volumes.GetDriveTypeA(root)) {
        case platform::kDriveRemovable:
            typeName = kRemovableDisk;
            break;
        case platform::kDriveFixed:
            typeName = kHardDisk;
            break;
        default:
            // No root directory, network, optical and RAM drives are not
            // recorded, and neither is a drive the platform cannot classify:
            // the inventory knows removable disks and hard disks only.
            break;
        }
        if (typeName == nullptr) continue;

        const std::string letter = vb::UCase(vb::Left(root, 2));
        if (letter == "A:" || letter == "B:") continue;
        m_DriveTyps.Append(typeName);
        p_SetDriveLetters(std::to_string(m_DriveLetters.Count()), letter);
    }

    mp_ReadUSBInfos();
}

std::string cDrive::mp_GetDriveName(const std::string& Drive) {
    std::array<char, 256> label{}, fileSystem{};
    std::uint32_t serial = 0, maxComponent = 0, flags = 0;
    prog_.sys.volumes.GetVolumeInformationA(Drive, label, serial, maxComponent, flags, fileSystem);
    auto upToNul = [](const std::array<char, 256>& b) {
        std::string_view v(b.data(), b.size());
        return std::string(v.substr(0, v.find('\0')));
    };
    m_FileSystem = upToNul(fileSystem);
    return upToNul(label);
}

void cDrive::OpenDir(const std::string& sPath) {
    if (!mp_PathExists(sPath)) return;
    prog_.sys.shell.ShellExecuteA(prog_.view.hWnd(), "open", sPath, "", "", platform::kSwShowNormal);
}

void cDrive::GetDriveCapacity() {
    app::View& view = prog_.view;
    const std::string d = p_GetDriveLetters("0");
    mp_GetDiskSpace(d);

    const double size = TotalSpace();
    const double free = TotalFreeSpace();
    const double used = TotalSpace() - TotalFreeSpace();

    std::int16_t e = 0;
    const int index = view.ListIndex(Ctl::cmbSize);
    if (index >= 0) e = static_cast<std::int16_t>(view.ItemData(Ctl::cmbSize, index));
    const double unit = std::pow(1024.0, e);

    const char sep = prog_.sys.app.DecimalSeparator();
    view.SetText(Ctl::lblHDSize, vb::FormatSize(size / unit, sep));
    view.SetText(Ctl::lblHDFree, vb::FormatSize(free / unit, sep));
    view.SetText(Ctl::lblHDUsed, vb::FormatSize(used / unit, sep));

    // A drive that cannot be read has size 0: the share stays 0 and the bar empty.
    double pct = 0;
    if (size / unit != 0) pct = (used / unit) / (size / unit) * 100.0;

    // The usage bar. A share beyond the 32-bit range cannot be passed on, and
    // a window without the picture has nothing to paint: the step is skipped.
    const double share = vb::RoundHalfEven(pct);
    app::Surface* picture = view.Picture(Ctl::Picture1);
    if (picture != nullptr && share >= -2147483648.0 && share <= 2147483647.0) {
        ui::cProgressBar bar;
        bar.StartFarbe(110, 0, 0);
        bar.EndFarbe(200, 0, 0);
        bar.ShowProgress(*picture, static_cast<std::int32_t>(share), 0, 100, true);
    }
}

std::int32_t cDrive::GetAllFiles(std::string sStartPath, std::vector<std::string>& sFolders,
                                 std::vector<std::int16_t>& iFound, bool bRecurse, std::int32_t& lIndex) {
    prog_.sys.windows.DoEvents();
    if (sStartPath.empty() || sStartPath.back() != '\\') sStartPath += '\\';

    std::int32_t count = 0;
    platform::FindData data;
    auto& volumes = prog_.sys.volumes;
    const platform::Handle search = volumes.FindFirstFileA(sStartPath + "*.*", data);
    if (search == platform::kInvalidHandleValue) return 0;

    std::vector<std::string> found;
    do {
        const std::string name(data.cFileName.data(),
                               std::string_view(data.cFileName.data(), data.cFileName.size()).find('\0'));
        if ((data.dwFileAttributes & platform::kAttrDirectory) != 0 && name != "." && name != "..")
            found.push_back(name);
    } while (volumes.FindNextFileA(search, data));
    volumes.FindClose(search);

    for (const auto& name : found) {
        const auto at = static_cast<std::size_t>(lIndex);
        if (at >= sFolders.size()) sFolders.resize(at + 100);
        if (at >= iFound.size()) iFound.resize(at + 100);
        sFolders[at] = sStartPath + name;
        iFound[at] = static_cast<std::int16_t>(count);
        ++count;
        ++lIndex;
        if (bRecurse) count += GetAllFiles(sStartPath + name, sFolders, iFound, bRecurse, lIndex);
    }
    return count;
}

bool cDrive::p_SetDriveLetters(const std::string& Key, std::string sNew) {
    if (sNew.empty() || sNew.back() != '\\') sNew += '\\';
    return m_DriveLetters.Add(Key, std::move(sNew));
}

double cDrive::mp_BytesToDouble(std::span<const std::uint8_t, 8> bytes) {
    double value = 0;
    double multiplier = 1;
    for (std::uint8_t b : bytes) {
        value += b * multiplier;
        multiplier *= 256;
    }
    return value;
}

bool cDrive::mp_PathExists(const std::string& path) {
    auto& volumes = prog_.sys.volumes;
    const std::uint32_t attributes = volumes.GetFileAttributesA(path);
    if (attributes != platform::kAttrDirectory && attributes != platform::kAttrArchive) return false;

    // A folder given with its closing backslash is searched for its contents.
    std::string pattern = path;
    if (!pattern.empty() && pattern.back() == '\\') pattern += '*';
    platform::FindData data;
    const platform::Handle search = volumes.FindFirstFileA(pattern, data);
    if (search == platform::kInvalidHandleValue) return false;
    volumes.FindClose(search);
    return true;
}

// --- the USB side: the current drive, USB.ini and the status of the last scan ---

std::uintptr_t cDrive::LoadConnectIcon() {
    std::string path = prog_.sys.app.Path();
    if (path.empty() || path.back() != '\\') path += '\\';
    return prog_.sys.windows.LoadPicture(path + "Connect.ico");
}

// The tray object keeps the picture; without one it goes back at once.
void cDrive::GiveToTray(std::uintptr_t icon) {
    if (icon == 0) return;
    if (prog_.gTray)
        prog_.gTray->TrayIcon_Icon(icon);
    else
        prog_.sys.windows.ReleasePicture(icon);
}

void cDrive::mp_ReadUSBInfos() {
    m_USBInfos.Clear();
    const std::int32_t n = p_GetDL_Count();
    if (n >= 2) {
        m_USBInfos.Add("0", "-1");
        return;
    }
    if (n == 0) {
        m_USBInfos.Add("0", "-2");
        GiveToTray(LoadConnectIcon());
        return;
    }
    // One drive: its USB.ini, read as key/value pairs in file order. A missing
    // Connect.ico or a broken USB.ini ends the rebuild with the list empty.
    const auto icon = LoadConnectIcon();
    if (icon == 0) return;
    GiveToTray(icon);
    const std::string file = p_GetDriveLetters("0") + "USB.ini";
    if (!mp_PathExists(file)) return;
    settings::basINI& ini = prog_.ini;
    ini.IniListsReset();
    const auto sections = ini.IniSectionNames(file);
    for (std::size_t i = 0; i + 1 < sections.size(); ++i)
        if (!ini.IniSectionRead(file, sections[i])) return;
    const std::int32_t count = ini.IniKeyCount();
    for (std::int32_t i = 0; i < count; ++i) {
        m_USBInfos.Add(std::to_string(2 * i), ini.IniKeyGet(std::to_string(i)));
        m_USBInfos.Add(std::to_string(2 * i + 1), ini.IniValueGet(std::to_string(i)));
    }
}

void cDrive::ChooseUSB_Info(std::string& sItem) {
    const std::int32_t n = p_GetDL_Count();
    if (sItem.empty() || n >= 2) {
        const std::string last = p_GetUSBInfos(std::to_string(p_USBInfosCount() - 1));
        if (last == "-2") {
            app::View& v = prog_.view;
            prog_.sys.windows.MessageBoxA(v.hWnd(), "No USB device found.", v.Text(app::Ctl::frmMain),
                                          platform::kMbOk | platform::kMbIconInformation);
            RemoveUSB_Info();
            return;
        }
        if (last != "-1") return;
    }
    p_Del_DriveLetters();
    p_SetDriveLetters("0", sItem);
    SetUSB_Info();
}

void cDrive::SetUSB_Info() {
    app::View& v = prog_.view;
    GetDriveCapacity();
    std::string value = prog_.ini.IniValueGet("0");
    const std::string root = p_GetDriveLetters("0");
    if (mp_PathExists(root + "USB.ini")) {
        if (!value.empty() && value.front() == '\\') value.erase(0, 1);
        mp_StandardPfad(value);
    }
    v.SetText(Ctl::txtDT_Cap, mp_GetDriveName(root));
    v.SetText(Ctl::txtFAT, mp_FileSystem());
    if (const auto icon = LoadConnectIcon(); icon != 0 && prog_.gTray) {
        GiveToTray(icon);
        auto handle = static_cast<std::uint32_t>(prog_.gTray->TrayIcon_Icon());
        prog_.gTray->TrayIcon_Modify(v.Text(Ctl::frmMain), handle);
    }
}

void cDrive::RemoveUSB_Info() {
    app::View& v = prog_.view;
    mp_StandardPfad(std::string{});
    v.SetText(Ctl::txtFAT, "");
    v.SetText(Ctl::txtDT_Cap, "");
    v.SetText(Ctl::lblHDFree, "");
    v.SetText(Ctl::lblHDSize, "");
    v.SetText(Ctl::lblHDUsed, "");
    if (app::Surface* bar = v.Picture(Ctl::Picture1)) bar->Cls();
    prog_.ini.IniListsReset();
    m_USBInfos.Clear();
    m_DriveLetters.Clear();
    m_DriveTyps.Clear();
}

std::string cDrive::mp_StandardPfad() {
    const std::string path = p_GetDriveLetters("0") + m_StandardPfad;
    if (mp_PathExists(path)) return m_PfadValid ? m_StandardPfad : std::string{};
    // A standard folder that was missing once stays unusable for good.
    if (!m_StandardPfad.empty()) m_PfadValid = false;
    return {};
}

void cDrive::mp_StandardPfad(const std::string& sNewValue) { m_StandardPfad = sNewValue; }

} // namespace drives
