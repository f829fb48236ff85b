#pragma once
// Services that pass every call to another instance of the service, for
// wrappers that look at or change a few calls and leave the rest as they are
// (the command-line tool's refusal recorder and its window system, tests
// that note where requests go).
#include "platform/devices.h"
#include "platform/window_system.h"

namespace platform {

class DevicesPassThrough : public Devices {
public:
    explicit DevicesPassThrough(Devices& inner) : inner_(inner) {}

    DevInfoSet SetupDiGetClassDevsA(const Guid& classGuid, std::uint32_t flags) override {
        return inner_.SetupDiGetClassDevsA(classGuid, flags);
    }
    bool SetupDiEnumDeviceInterfaces(DevInfoSet set, const Guid& classGuid, std::uint32_t memberIndex,
                                     SpDeviceInterfaceData& data) override {
        return inner_.SetupDiEnumDeviceInterfaces(set, classGuid, memberIndex, data);
    }
    bool SetupDiGetDeviceInterfaceDetailA(DevInfoSet set, const SpDeviceInterfaceData& data,
                                          std::span<std::uint8_t> detail, std::uint32_t* requiredSize,
                                          SpDevinfoData* devInfo) override {
        return inner_.SetupDiGetDeviceInterfaceDetailA(set, data, detail, requiredSize, devInfo);
    }
    bool SetupDiDestroyDeviceInfoList(DevInfoSet set) override { return inner_.SetupDiDestroyDeviceInfoList(set); }
    std::uint32_t CM_Get_Parent(DevInst& parent, DevInst device, std::uint32_t flags) override {
        return inner_.CM_Get_Parent(parent, device, flags);
    }
    std::uint32_t CM_Request_Device_EjectW(DevInst device, std::int32_t* vetoType, std::span<char16_t> vetoName,
                                           std::uint32_t flags) override {
        return inner_.CM_Request_Device_EjectW(device, vetoType, vetoName, flags);
    }
    void Sleep(std::uint32_t milliseconds) override { inner_.Sleep(milliseconds); }

protected:
    Devices& inner_;
};

class WindowSystemPassThrough : public WindowSystem {
public:
    explicit WindowSystemPassThrough(WindowSystem& inner) : inner_(inner) {}

    WindowHandle FindWindowA(const std::string& className, const std::string& windowName) override {
        return inner_.FindWindowA(className, windowName);
    }
    WindowHandle GetWindow(WindowHandle window, std::uint32_t command) override {
        return inner_.GetWindow(window, command);
    }
    bool OpenIcon(WindowHandle window) override { return inner_.OpenIcon(window); }
    bool SetForegroundWindow(WindowHandle window) override { return inner_.SetForegroundWindow(window); }
    std::int32_t MessageBoxA(WindowHandle owner, const std::string& text, const std::string& caption,
                             std::uint32_t type) override {
        return inner_.MessageBoxA(owner, text, caption, type);
    }
    void DoEvents() override { inner_.DoEvents(); }
    void WaitForMessages(float seconds) override { inner_.WaitForMessages(seconds); }
    float Timer() override { return inner_.Timer(); }
    std::intptr_t SendMessageA(WindowHandle window, std::uint32_t message, std::uintptr_t wParam,
                               std::intptr_t lParam) override {
        return inner_.SendMessageA(window, message, wParam, lParam);
    }
    std::intptr_t GetWindowLongA(WindowHandle window, std::int32_t index) override {
        return inner_.GetWindowLongA(window, index);
    }
    std::intptr_t SetWindowLongA(WindowHandle window, std::int32_t index, std::intptr_t value) override {
        return inner_.SetWindowLongA(window, index, value);
    }
    std::intptr_t CallWindowProcA(std::intptr_t previous, WindowHandle window, std::uint32_t message,
                                  std::uintptr_t wParam, std::intptr_t lParam) override {
        return inner_.CallWindowProcA(previous, window, message, wParam, lParam);
    }
    bool SetPropA(WindowHandle window, const std::string& name, std::intptr_t value) override {
        return inner_.SetPropA(window, name, value);
    }
    std::intptr_t GetPropA(WindowHandle window, const std::string& name) override {
        return inner_.GetPropA(window, name);
    }
    std::intptr_t RemovePropA(WindowHandle window, const std::string& name) override {
        return inner_.RemovePropA(window, name);
    }
    bool MessageBeep(std::uint32_t type) override { return inner_.MessageBeep(type); }
    bool FlashWindow(WindowHandle window, bool invert) override { return inner_.FlashWindow(window, invert); }
    bool SetWindowPos(WindowHandle window, WindowHandle insertAfter, std::int32_t x, std::int32_t y, std::int32_t cx,
                      std::int32_t cy, std::uint32_t flags) override {
        return inner_.SetWindowPos(window, insertAfter, x, y, cx, cy, flags);
    }
    TwipsRect WorkArea() override { return inner_.WorkArea(); }
    std::uintptr_t LoadPicture(const std::string& file) override { return inner_.LoadPicture(file); }
    void ReleasePicture(std::uintptr_t picture) override { inner_.ReleasePicture(picture); }
    std::uint32_t LastError() override { return inner_.LastError(); }
    std::string ErrorText(std::uint32_t number) override { return inner_.ErrorText(number); }

protected:
    WindowSystem& inner_;
};

} // namespace platform
