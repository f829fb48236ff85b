#include "drives/cDrive.h"

#include <array>
#include <cmath>
#include <string_view>

#include "app/program.h"
#include "app/vb.h"
#include "ui/cProgressBar.h"

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

    ui::cProgressBar bar;
    bar.StartFarbe(110, 0, 0);
    bar.EndFarbe(200, 0, 0);
    bar.ShowProgress(view, Ctl::Picture1, vb::RoundHalfEven(pct), 0, 100, true);
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

// The USB side of the inventory (choosing, showing and forgetting the current
// drive, the per-drive USB.ini and the status of the last scan) is not built
// yet: these members leave the inventory and the window as they are.
void cDrive::RemoveUSB_Info() {}
void cDrive::ChooseUSB_Info(std::string&) {}
void cDrive::SetUSB_Info() {}
void cDrive::mp_StandardPfad(const std::string&) {}
void cDrive::mp_ReadUSBInfos() {}

} // namespace drives
