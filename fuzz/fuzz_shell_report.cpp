// The shell's change reports as the window decodes them into its log: any
// event code, items with any names and paths, and the small value records
// (image index, drive mask, extended event) with any value.
#include <cstdint>
#include <cstring>
#include <string>

#include "app/frmMain.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace {

struct Input {
    const std::uint8_t* data;
    std::size_t size;
    std::uint32_t U32() {
        std::uint32_t v = 0;
        const std::size_t n = size < 4 ? size : 4;
        std::memcpy(&v, data, n);
        data += n;
        size -= n;
        return v;
    }
    std::string Text() {
        const std::size_t n = size == 0 ? 0 : data[0] % (size < 64 ? size : 64);
        std::string s(reinterpret_cast<const char*>(data), n);
        data += n;
        size -= n;
        return s;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fake::Machine machine;
    fake::Drive c;
    c.root = "C:\\";
    c.type = platform::kDriveFixed;
    machine.AddDrive(c);
    platform::Services services = machine.services();
    fake::HeadlessView view;
    app::frmMain form(services, view);
    form.Form_Load();
    Input in{data, size};
    for (int reports = 0; reports < 8 && in.size >= 4; ++reports) {
        const std::uint32_t event = in.U32();
        const std::uint32_t kind = in.U32();
        const platform::Pidl item2 = kind & 2 ? machine.ShellItem(in.Text(), in.Text()) : 0;
        if (kind & 1) {
            machine.ShellValueReport(event, in.U32(), item2);
        } else {
            const platform::Pidl item1 = kind & 4 ? machine.ShellItem(in.Text(), in.Text()) : 0;
            machine.ShellReport(event, item1, item2);
        }
    }
    return 0;
}
