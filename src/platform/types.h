#pragma once
// Plain C++ stand-ins for the Windows handle and constant types that cross the
// platform boundary. Names differ from the <windows.h> macros on purpose so the
// Win32 backend can include both.
#include <cstdint>

namespace platform {

using Handle = std::intptr_t;        // HANDLE
using WindowHandle = std::uintptr_t; // HWND

inline constexpr Handle kInvalidHandleValue = -1;
inline constexpr std::uint32_t kInvalidFileAttributes = 0xFFFFFFFFu;

// GetDriveTypeA results.
inline constexpr std::uint32_t kDriveUnknown = 0;
inline constexpr std::uint32_t kDriveNoRootDir = 1;
inline constexpr std::uint32_t kDriveRemovable = 2;
inline constexpr std::uint32_t kDriveFixed = 3;
inline constexpr std::uint32_t kDriveRemote = 4;
inline constexpr std::uint32_t kDriveCdrom = 5;
inline constexpr std::uint32_t kDriveRamdisk = 6;

// File attributes.
inline constexpr std::uint32_t kAttrReadOnly = 0x1;
inline constexpr std::uint32_t kAttrHidden = 0x2;
inline constexpr std::uint32_t kAttrSystem = 0x4;
inline constexpr std::uint32_t kAttrVolume = 0x8;
inline constexpr std::uint32_t kAttrDirectory = 0x10;
inline constexpr std::uint32_t kAttrArchive = 0x20;
inline constexpr std::uint32_t kAttrNormal = 0x80;

// MoveFileExA flags.
inline constexpr std::uint32_t kMoveFileReplaceExisting = 0x1;
inline constexpr std::uint32_t kMoveFileWriteThrough = 0x8;

// MessageBoxA styles and answers.
inline constexpr std::uint32_t kMbOk = 0x0;
inline constexpr std::uint32_t kMbYesNo = 0x4;
inline constexpr std::uint32_t kMbIconStop = 0x10;
inline constexpr std::uint32_t kMbIconQuestion = 0x20;
inline constexpr std::uint32_t kMbIconExclamation = 0x30;
inline constexpr std::uint32_t kMbIconInformation = 0x40;
inline constexpr std::uint32_t kMbDefButton2 = 0x100;
inline constexpr std::int32_t kIdOk = 1;
inline constexpr std::int32_t kIdCancel = 2;
inline constexpr std::int32_t kIdYes = 6;
inline constexpr std::int32_t kIdNo = 7;

// GetWindow commands.
inline constexpr std::uint32_t kGwHwndPrev = 3;

// ShellExecuteA show commands.
inline constexpr std::int32_t kSwShowNormal = 1;

} // namespace platform
