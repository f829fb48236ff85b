#include "win32_processes.h"

#include <algorithm>
#include <deque>
#include <windows.h>
// windows.h first: the Restart Manager header needs its types.
#include <restartmanager.h>

namespace ctlwin {

namespace {

std::string Narrow(const wchar_t* text) {
    const int n = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 1) return {};
    std::string out(static_cast<std::size_t>(n - 1), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), n, nullptr, nullptr);
    return out;
}

// The files of a drive, breadth-first from its root, at most limit of them.
std::vector<std::wstring> FilesOf(const std::wstring& root, std::size_t limit) {
    std::vector<std::wstring> files;
    std::deque<std::wstring> folders{root};
    while (!folders.empty() && files.size() < limit) {
        const std::wstring folder = folders.front();
        folders.pop_front();
        WIN32_FIND_DATAW data{};
        HANDLE search = ::FindFirstFileW((folder + L"*").c_str(), &data);
        if (search == INVALID_HANDLE_VALUE) continue;
        do {
            const std::wstring name = data.cFileName;
            if (name == L"." || name == L"..") continue;
            if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
                    folders.push_back(folder + name + L"\\");
            } else {
                files.push_back(folder + name);
            }
        } while (files.size() < limit && ::FindNextFileW(search, &data));
        ::FindClose(search);
    }
    return files;
}

} // namespace

std::vector<platform::ProcessHold> RestartManagerProcesses::WhoHolds(const std::string& root) {
    std::vector<platform::ProcessHold> holds;
    if (root.size() < 2 || root[1] != ':') return holds;
    const std::wstring wroot{static_cast<wchar_t>(root[0]), L':', L'\\'};
    const std::vector<std::wstring> files = FilesOf(wroot, fileLimit_);
    if (files.empty()) return holds;

    DWORD session = 0;
    WCHAR key[CCH_RM_SESSION_KEY + 1]{};
    if (::RmStartSession(&session, 0, key) != ERROR_SUCCESS) return holds;
    std::vector<LPCWSTR> names;
    names.reserve(files.size());
    for (const auto& f : files) names.push_back(f.c_str());
    if (::RmRegisterResources(session, static_cast<UINT>(names.size()), names.data(), 0, nullptr, 0, nullptr) ==
        ERROR_SUCCESS) {
        UINT needed = 0, count = 0;
        DWORD reasons = 0;
        std::vector<RM_PROCESS_INFO> info;
        DWORD status = ERROR_MORE_DATA;
        for (int tries = 0; status == ERROR_MORE_DATA && tries < 4; ++tries) {
            info.resize(needed);
            count = needed;
            status = ::RmGetList(session, &needed, &count, info.empty() ? nullptr : info.data(), &reasons);
        }
        if (status == ERROR_SUCCESS) {
            for (UINT i = 0; i < count && i < info.size(); ++i)
                holds.push_back({info[i].Process.dwProcessId, Narrow(info[i].strAppName), "file", root});
        }
    }
    ::RmEndSession(session);
    std::sort(holds.begin(), holds.end(), [](const auto& a, const auto& b) { return a.pid < b.pid; });
    return holds;
}

} // namespace ctlwin
