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

} // namespace

void cmdRemoveUSB_Click(app::frmMain& form) {
    if (form.ReleaseBusy()) return; // one run at a time
    const Busy busy(form);

    app::Program& prog = form.program();
    app::View& v = form.view();
    auto& windows = prog.sys.windows;
    auto yield = [&] { windows.DoEvents(); };
    auto message = [&](const std::string& text) {
        windows.MessageBoxA(v.hWnd(), text, prog.sys.app.Title(), platform::kMbOk | platform::kMbIconStop);
    };

    // The work list: the selected rows, never the system drive.
    std::int16_t SelectedCount = 0;
    v.ClearList(Ctl::lstTempUSB);
    const int rows = v.ItemCount(Ctl::ListView1);
    for (int i = 1; i <= rows; ++i) {
        const std::string text = v.ItemText(Ctl::ListView1, i);
        if (v.ItemSelected(Ctl::ListView1, i) && !IsSystemDrive(text)) {
            v.AddListItem(Ctl::lstTempUSB, text);
            ++SelectedCount;
        }
    }
    std::int16_t ReleasedCount = 0;
    yield();

    v.SetEnabled(Ctl::cmdRemoveUSB, false);
    v.SetEnabled(Ctl::cmdClose, false);
    form.SetReleaseRunning(1);

    const int entries = v.ListCount(Ctl::lstTempUSB);
    for (int i = 0; i < entries; ++i) {
        const std::string Entry = vb::Trim(v.List(Ctl::lstTempUSB, i));
        yield();
        v.SetVisible(Ctl::Frame1, false);
        yield();
        v.SetText(Ctl::lblMessage1, kReleasingAt + Entry + " ]");
        yield();
        v.SetText(Ctl::lblMessage2, kPleaseWait);
        yield();
        v.SetVisible(Ctl::frameNotify, true);
        yield();

        // The root from the entry: a root as listed, a letter with its colon,
        // or a letter alone.
        std::string Root;
        const char* refusal = nullptr;
        if (Entry.size() > 3) {
            refusal = kUsbDeviceNotFound;
        } else if (Entry.size() == 2) {
            if (!OnUsbBus(prog.sys, Entry))
                refusal = kNotUsbDevice;
            else
                Root = v.Text(Ctl::txtUsbDrive) + "\\";
        } else if (Entry.size() == 1) {
            if (!OnUsbBus(prog.sys, Entry + ":"))
                refusal = kNotUsbDevice;
            else
                Root = Entry + ":\\";
        } else {
            if (!OnUsbBus(prog.sys, vb::Left(Entry, 2)))
                refusal = kNotUsbDevice;
            else
                Root = Entry;
        }
        if (refusal != nullptr) {
            message(refusal);
            v.SetFocus(Ctl::ListView1);
            v.SetVisible(Ctl::frameNotify, false);
            v.SetVisible(Ctl::Frame1, true);
            yield();
            break;
        }

        const Outcome outcome = ReleaseDrive(prog.sys, Root, app::kTrue);
        if (outcome == Outcome::kHandlesNotClosed) {
            message(kErrorWithDrive + Root);
            break;
        }
        if (outcome == Outcome::kNotEjected) {
            message(std::string(kUnableToRelease) + " " + Root);
            break;
        }

        if (SelectedCount == 1) {
            form.ShowRelease("USB device at [ " + Root + " ]  has been released.");
            break;
        }
        ++ReleasedCount;
        yield();
        // The list control repaints itself; the yields let the removal that
        // follows the ejection come in.
        yield();
        v.SetVisible(Ctl::frameNotify, false);
        yield();
        v.SetVisible(Ctl::Frame1, true);
    }

    yield();
    v.SetVisible(Ctl::frameNotify, false);
    v.SetVisible(Ctl::Frame1, true);

    if (ReleasedCount > 0) form.ShowRelease(std::to_string(ReleasedCount) + " USB drives released.");

    form.SetWaitStart(windows.Timer());
    prog.WaitSince(form.WaitStart(), 0.5f);

    form.SetReleaseRunning(0);
    yield();
    v.SetEnabled(Ctl::cmdRemoveUSB, true);
    yield();
    v.SetEnabled(Ctl::cmdClose, true);
}

} // namespace release
