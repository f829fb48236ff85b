#include "app/release_command.h"

#include <string>

#include "app/frmMain.h"
#include "core/vb.h"
#include "release/release_drive.h"

namespace release {

namespace {

using app::Ctl;

// Marks the run under way for as long as the handler runs.
class Busy {
public:
    explicit Busy(app::frmMain& form) : form_(form) { form_.SetReleaseBusy(true); }
    ~Busy() { form_.SetReleaseBusy(false); }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    app::frmMain& form_;
};

// One run of the command over the work list. Each step yields to the
// message loop where the window lets the system's messages in.
class Run {
public:
    explicit Run(app::frmMain& form)
        : form_(form), prog_(form.program()), v_(form.view()), windows_(prog_.sys.windows) {}

    void operator()() {
        FillWorkList();
        yield();
        v_.SetEnabled(Ctl::cmdRemoveUSB, false);
        v_.SetEnabled(Ctl::cmdClose, false);
        form_.SetReleaseRunning(1);

        const int entries = v_.ListCount(Ctl::lstTempUSB);
        for (int i = 0; i < entries; ++i)
            if (!ReleaseEntry(vb::Trim(v_.List(Ctl::lstTempUSB, i)))) break;
        Finish();
    }

private:
    void yield() { windows_.DoEvents(); }
    void message(const std::string& text) {
        windows_.MessageBoxA(v_.hWnd(), text, prog_.sys.app.Title(), platform::kMbOk | platform::kMbIconStop);
    }

    // The work list: the selected rows, never the system drive.
    void FillWorkList() {
        v_.ClearList(Ctl::lstTempUSB);
        const int rows = v_.ItemCount(Ctl::ListView1);
        for (int i = 1; i <= rows; ++i) {
            const std::string text = v_.ItemText(Ctl::ListView1, i);
            if (v_.ItemSelected(Ctl::ListView1, i) && !IsSystemDrive(text)) {
                v_.AddListItem(Ctl::lstTempUSB, text);
                ++SelectedCount;
            }
        }
    }

    void ShowReleasing(const std::string& Entry) {
        yield();
        v_.SetVisible(Ctl::Frame1, false);
        yield();
        v_.SetText(Ctl::lblMessage1, kReleasingAt + Entry + " ]");
        yield();
        v_.SetText(Ctl::lblMessage2, kPleaseWait);
        yield();
        v_.SetVisible(Ctl::frameNotify, true);
        yield();
    }

    // The root from the entry: a root as listed, a letter with its colon, or
    // a letter alone; "" with the refusal when the entry names no USB drive.
    std::string RootOf(const std::string& Entry, const char*& refusal) {
        if (Entry.size() > 3) {
            refusal = kUsbDeviceNotFound;
            return {};
        }
        const std::string drive = Entry.size() == 1 ? Entry + ":" : vb::Left(Entry, 2);
        if (!OnUsbBus(prog_.sys, drive)) {
            refusal = kNotUsbDevice;
            return {};
        }
        if (Entry.size() == 2) return v_.Text(Ctl::txtUsbDrive) + "\\";
        return Entry.size() == 1 ? Entry + ":\\" : Entry;
    }

    // Releases one entry's drive; false ends the run.
    bool ReleaseEntry(const std::string& Entry) {
        ShowReleasing(Entry);
        const char* refusal = nullptr;
        const std::string Root = RootOf(Entry, refusal);
        if (refusal != nullptr) {
            message(refusal);
            v_.SetFocus(Ctl::ListView1);
            v_.SetVisible(Ctl::frameNotify, false);
            v_.SetVisible(Ctl::Frame1, true);
            yield();
            return false;
        }

        const Outcome outcome = ReleaseDrive(prog_.sys, Root, app::kTrue);
        if (outcome == Outcome::kHandlesNotClosed) {
            message(kErrorWithDrive + Root);
            return false;
        }
        if (outcome == Outcome::kNotEjected) {
            message(std::string(kUnableToRelease) + " " + Root);
            return false;
        }

        if (SelectedCount == 1) {
            form_.ShowRelease("USB device at [ " + Root + " ]  has been released.");
            return false;
        }
        ++ReleasedCount;
        // The yields let the removal that follows the ejection come in; the
        // list is repainted between them, while the notice is still up.
        yield();
        v_.Refresh(Ctl::ListView1);
        yield();
        v_.SetVisible(Ctl::frameNotify, false);
        yield();
        v_.SetVisible(Ctl::Frame1, true);
        return true;
    }

    void Finish() {
        yield();
        v_.SetVisible(Ctl::frameNotify, false);
        v_.SetVisible(Ctl::Frame1, true);

        if (ReleasedCount > 0) form_.ShowRelease(std::to_string(ReleasedCount) + " USB drives released.");

        form_.SetWaitStart(windows_.Timer());
        prog_.WaitSince(form_.WaitStart(), 0.5f);

        form_.SetReleaseRunning(0);
        yield();
        v_.SetEnabled(Ctl::cmdRemoveUSB, true);
        yield();
        v_.SetEnabled(Ctl::cmdClose, true);
    }

    app::frmMain& form_;
    app::Program& prog_;
    app::View& v_;
    platform::WindowSystem& windows_;
    std::int16_t SelectedCount = 0;
    std::int16_t ReleasedCount = 0;
};

} // namespace

void cmdRemoveUSB_Click(app::frmMain& form) {
    if (form.ReleaseBusy()) return; // one run at a time
    const Busy busy(form);
    Run{form}();
}

} // namespace release
