#pragma once
// frmMain: the main window's logic. It owns the program object and every
// handler of the window; a renderer (or the headless window) reports events
// through ViewEvents.
#include <cstdint>
#include <memory>
#include <string>

#include "core/program.h"
#include "core/view.h"
#include "platform/win_numbers.h"

namespace ui {
class cLV;
}

namespace app {

inline constexpr const char* kHiddenWindowClass = platform::kHiddenWindowClass;
inline constexpr const char* kSettingsFile = "Kestrine.ini";
inline constexpr const char* kSettingsSection = "Kestrine";
inline constexpr const char* kCloseRefused = "Cannot close program while USB drive(s) are being released.";

class frmMain : public ViewEvents {
public:
    frmMain(platform::Services& services, View& view);
    ~frmMain() override;
    frmMain(const frmMain&) = delete;
    frmMain& operator=(const frmMain&) = delete;

    Program& program() { return prog_; }
    View& view() { return prog_.view; }

    // Life of the window.
    void Form_Load();
    bool ActivatePrevInstance(); // true when the earlier instance was found and this process ended
    void Form_Activate();
    void Form_QueryUnload(std::int16_t& Cancel, std::int16_t UnloadMode);
    void Form_Unload(std::int16_t& Cancel);
    void Unload_Prog();
    // Asks for the window to be unloaded: the close request, then the unload.
    // False when the request was refused.
    bool Unload();
    void cmdClose_Click();
    void mnuExit_Click();
    void Form_Resize();

    // Settings.
    void ReadSettings();
    void WriteSettings();
    std::string SettingsPath();

    // The drive list.
    void FillDriveList(bool Refresh);
    // Refreshes the hidden drive list box: one entry per logical drive.
    void Drive1_Refresh();

    // Window handlers.
    void ShowSelectedDrive();
    void ShowDriveCaption();
    void ListView1_KeyDown(std::int16_t& KeyCode, std::int16_t Shift);
    void ListView1_MouseUp(std::int16_t Button, std::int16_t Shift);
    void cmbSize_Click();
    void SetLabelCap();
    void txtDT_Cap_Change();
    void txtDT_Cap_Validate(bool& Cancel);
    void cmdCentreScreen_Click();
    void ReadDrivesInfo();
    void lstDrives_Click();
    void mnuPopup_Click(int Index);
    // Shows the released notice with the message for about one second.
    void ShowRelease(const std::string& Message);
    void SubClassNotify();

    // The shell's change reports, decoded into the event log Text1.
    void HandleShellNotify(std::uintptr_t& ItemsPtr, std::uint32_t& EventCode);
    void tmrFlashMe_Timer();
    int FlashInterval() const { return FlashInterval_; }

    // The user's commands.
    void cmdExplore_Click();
    void OpenRecycleBin();
    void cmdSelectUtility_Click();
    void cmdBrindle_Click();
    std::string LocateThisProgram(const std::string& WhichProgram);
    void cmdAbout_Click();
    void cmdSetLabel_Click();

    // State of the window.
    const std::string& StartDrive() const { return StartDrive_; }
    std::int16_t FirstActivation() const { return FirstActivation_; }
    std::int16_t ReleaseRunning() const { return ReleaseRunning_; }
    void SetReleaseRunning(std::int16_t value) { ReleaseRunning_ = value; }
    const std::string& SelectedDrive() const { return SelectedDrive_; }
    float WaitStart() const { return WaitStart_; }
    void SetWaitStart(float value) { WaitStart_ = value; }
    // True from the first step of a release run to its last; a second release
    // request is refused while it is (ReleaseRunning covers a shorter span).
    bool ReleaseBusy() const { return ReleaseBusy_; }
    void SetReleaseBusy(bool busy) { ReleaseBusy_ = busy; }
    bool Ended() const { return ended_; }

    // ViewEvents
    void Click(Ctl control) override;
    void DblClick(Ctl control) override;
    void Change(Ctl control) override;
    void KeyDown(Ctl control, std::int16_t& keyCode, std::int16_t shift) override;
    void KeyUp(Ctl control, std::int16_t& keyCode, std::int16_t shift) override;
    void MouseUp(Ctl control, std::int16_t button, std::int16_t shift, float x, float y) override;
    void Validate(Ctl control, bool& cancel) override;
    void Tick(Ctl timer) override;
    void Resize() override;
    void Activate() override;
    void CloseRequested() override;
    bool SessionEnding() override;

private:
    Program prog_;
    std::unique_ptr<ui::cLV> ListHelper_;
    std::string StartDrive_;
    std::int16_t FirstActivation_ = 0;
    std::int16_t ReleaseRunning_ = 0;
    std::string SelectedDrive_;
    float WaitStart_ = 0;
    bool ReleaseBusy_ = false;
    std::int16_t FlashCount_ = 0; // ticks of the flash timer in the current burst
    int FlashInterval_ = 0;       // the flash timer's interval in milliseconds; 0 never ticks
    bool closing_ = false;        // a close request or the unload is under way
    bool unloaded_ = false;       // Form_Unload has run
    bool ended_ = false;          // the process was asked to end
};

} // namespace app
