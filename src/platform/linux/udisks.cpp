#include "platform/linux/udisks.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>

#include <systemd/sd-bus.h>
#include <unistd.h>

#include "platform/linux/loaded_library.h"

namespace linuxbk {

namespace {

constexpr const char* kService = "org.freedesktop.UDisks2";
bool gInteraction = false;
constexpr std::uint64_t kActionTimeoutUs = 120'000'000; // room for a password to be typed

// The sd-bus functions asked here, from libsystemd opened when first needed.
#define KESTRINE_SD_BUS_FUNCTIONS(X)                                                                                   \
    X(sd_bus_open_system)                                                                                              \
    X(sd_bus_is_open)                                                                                                  \
    X(sd_bus_flush_close_unref)                                                                                        \
    X(sd_bus_call)                                                                                                     \
    X(sd_bus_call_method)                                                                                              \
    X(sd_bus_error_free)                                                                                               \
    X(sd_bus_get_property)                                                                                             \
    X(sd_bus_get_property_string)                                                                                      \
    X(sd_bus_get_property_trivial)                                                                                     \
    X(sd_bus_message_new_method_call)                                                                                  \
    X(sd_bus_message_append)                                                                                           \
    X(sd_bus_message_read)                                                                                             \
    X(sd_bus_message_set_auto_start)                                                                                   \
    X(sd_bus_message_set_allow_interactive_authorization)                                                              \
    X(sd_bus_message_unref)

struct SdBus {
#define KESTRINE_POINTER(name) decltype(&::name) name = nullptr;
    KESTRINE_SD_BUS_FUNCTIONS(KESTRINE_POINTER)
#undef KESTRINE_POINTER
    bool ready = false; // every function was found
    std::string error;  // else what the loader said
};

const SdBus& Sd() {
    static const SdBus api = [] {
        static LoadedLibrary library("libsystemd.so.0");
        SdBus a;
#define KESTRINE_GET(name) &&library.Get(#name, a.name)
        a.ready = library.Loaded() KESTRINE_SD_BUS_FUNCTIONS(KESTRINE_GET);
#undef KESTRINE_GET
        a.error = library.Error();
        return a;
    }();
    return api;
}

// Whether a system bus can be there at all: its socket where sd-bus looks
// for it, or an address given. Without one (a container, a system started
// without D-Bus) libsystemd is not even loaded.
bool SystemBusThere() {
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return (address != nullptr && *address != '\0') || ::access("/run/dbus/system_bus_socket", F_OK) == 0;
}

// What a request answers when there is no connection to ask on.
BusResult NoBus() {
    if (SystemBusThere() && !Sd().ready) return {Veto::Failed, "", "no system bus: " + Sd().error};
    return {Veto::Failed, "", "no system bus"};
}

struct BusDeleter {
    void operator()(sd_bus* bus) const { Sd().sd_bus_flush_close_unref(bus); }
};
struct MessageDeleter {
    void operator()(sd_bus_message* m) const { Sd().sd_bus_message_unref(m); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

// sd_bus_error freed on scope exit.
struct Error {
    sd_bus_error e{nullptr, nullptr, 0}; // SD_BUS_ERROR_NULL, without its C compound literal
    Error() = default;
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;
    ~Error() { Sd().sd_bus_error_free(&e); }
};

// The process's one connection to the system bus, opened when first needed
// and again when it broke (the bus daemon went away). sd-bus connections are
// not for several threads at once: a Connection holds the lock while used.
class Connection {
public:
    Connection() : lock_(Mutex()) {
        Bus& bus = Shared();
        if (bus && (Sd().sd_bus_is_open(bus.get()) <= 0 || Owner() != ::getpid())) {
            // In a forked child the parent's connection is not ours to close.
            if (Owner() != ::getpid()) static_cast<void>(bus.release());
            bus.reset();
        }
        if (!bus) {
            sd_bus* raw = nullptr;
            if (SystemBusThere() && Sd().ready && Sd().sd_bus_open_system(&raw) >= 0) {
                bus.reset(raw);
                Owner() = ::getpid();
            }
        }
    }
    sd_bus* get() const { return Shared().get(); }
    explicit operator bool() const { return get() != nullptr; }

private:
    static std::mutex& Mutex() {
        static std::mutex m;
        return m;
    }
    static Bus& Shared() {
        static Bus bus;
        return bus;
    }
    static pid_t& Owner() {
        static pid_t pid = 0;
        return pid;
    }
    std::unique_lock<std::mutex> lock_;
};

// Runs call on the shared connection, and once more on a new one when the
// connection had broken (the request then never reached the bus).
template <typename Call> auto OnBus(Call call) -> decltype(call(static_cast<sd_bus*>(nullptr))) {
    for (int attempt = 0;; ++attempt) {
        Connection bus;
        if (!bus) return call(nullptr);
        auto result = call(bus.get());
        if (attempt == 1 || Sd().sd_bus_is_open(bus.get()) > 0) return result;
    }
}

Veto VetoOf(const std::string& name) {
    if (name.find("DeviceBusy") != std::string::npos) return Veto::Busy;
    if (name.find("NotAuthorized") != std::string::npos || name.find("AccessDenied") != std::string::npos)
        return Veto::NotAuthorised;
    return Veto::Failed;
}

BusResult Failure(const sd_bus_error& e, int r) {
    BusResult out;
    out.error = e.name != nullptr ? e.name : "";
    out.detail = e.message != nullptr ? e.message : std::string("error ") + std::to_string(-r);
    out.veto = VetoOf(out.error);
    return out;
}

// Calls a method whose last argument is the options dictionary; extra holds
// one leading string argument, when the method takes one.
BusResult CallWithOptions(sd_bus* bus, const std::string& path, const char* interface, const char* member,
                          const std::string* text = nullptr) {
    sd_bus_message* raw = nullptr;
    int r = Sd().sd_bus_message_new_method_call(bus, &raw, kService, path.c_str(), interface, member);
    Message m(raw);
    if (r >= 0) r = Sd().sd_bus_message_set_auto_start(m.get(), 0);
    if (r >= 0 && text != nullptr) r = Sd().sd_bus_message_append(m.get(), "s", text->c_str());
    if (r >= 0)
        r = Sd().sd_bus_message_append(m.get(), "a{sv}", 1, "auth.no_user_interaction", "b", gInteraction ? 0 : 1);
    // The user may take a while to answer the authentication agent.
    if (r >= 0 && gInteraction) r = Sd().sd_bus_message_set_allow_interactive_authorization(m.get(), 1);
    Error error;
    sd_bus_message* reply = nullptr;
    if (r >= 0) r = Sd().sd_bus_call(bus, m.get(), kActionTimeoutUs, &error.e, &reply);
    Message answer(reply);
    if (r < 0) return Failure(error.e, r);
    return {};
}

std::optional<std::string> StringProperty(sd_bus* bus, const std::string& path, const char* interface,
                                          const char* member) {
    Error error;
    char* value = nullptr;
    if (Sd().sd_bus_get_property_string(bus, kService, path.c_str(), interface, member, &error.e, &value) < 0)
        return std::nullopt;
    std::string out(value != nullptr ? value : "");
    std::free(value);
    return out;
}

std::optional<std::string> ObjectProperty(sd_bus* bus, const std::string& path, const char* interface,
                                          const char* member) {
    Error error;
    sd_bus_message* reply = nullptr;
    if (Sd().sd_bus_get_property(bus, kService, path.c_str(), interface, member, &error.e, &reply, "o") < 0)
        return std::nullopt;
    Message answer(reply);
    const char* value = nullptr;
    if (Sd().sd_bus_message_read(answer.get(), "o", &value) < 0 || value == nullptr) return std::nullopt;
    return std::string(value);
}

std::optional<bool> BoolProperty(sd_bus* bus, const std::string& path, const char* interface, const char* member) {
    Error error;
    int value = 0;
    if (Sd().sd_bus_get_property_trivial(bus, kService, path.c_str(), interface, member, &error.e, 'b', &value) < 0)
        return std::nullopt;
    return value != 0;
}

// True when the object offers the interface (a property of it can be read).
bool HasInterface(sd_bus* bus, const std::string& path, const char* interface, const char* probe) {
    Error error;
    sd_bus_message* reply = nullptr;
    const int r = Sd().sd_bus_call_method(bus, kService, path.c_str(), "org.freedesktop.DBus.Properties", "Get",
                                          &error.e, &reply, "ss", interface, probe);
    Message answer(reply);
    return r >= 0;
}

bool NameHasOwner(sd_bus* bus) {
    Error error;
    sd_bus_message* reply = nullptr;
    const int r = Sd().sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                          "NameHasOwner", &error.e, &reply, "s", kService);
    Message answer(reply);
    int has = 0;
    return r >= 0 && Sd().sd_bus_message_read(answer.get(), "b", &has) >= 0 && has != 0;
}

} // namespace

const char* VetoName(Veto veto) {
    switch (veto) {
    case Veto::None:
        return "none";
    case Veto::Busy:
        return "busy";
    case Veto::NotAuthorised:
        return "not authorised";
    case Veto::Failed:
        return "failed";
    case Veto::SystemDrive:
        return "system drive";
    case Veto::NoDevice:
        return "no such device";
    }
    return "failed";
}

void UDisks::AllowInteraction(bool allow) { gInteraction = allow; }

bool UDisks::Available() {
    return OnBus([](sd_bus* bus) { return bus != nullptr && NameHasOwner(bus); });
}

std::string UDisks::BlockObject(const std::string& kernelName) {
    std::string path = "/org/freedesktop/UDisks2/block_devices/";
    for (char c : kernelName) {
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_') {
            path += c;
        } else {
            char hex[4];
            std::snprintf(hex, sizeof hex, "_%02x", static_cast<unsigned char>(c));
            path += hex;
        }
    }
    return path;
}

std::optional<UDisks::Identity> UDisks::IdOf(const std::string& kernelName) {
    return OnBus([&](sd_bus* bus) -> std::optional<Identity> {
        if (bus == nullptr || !NameHasOwner(bus)) return std::nullopt;
        const std::string path = BlockObject(kernelName);
        auto label = StringProperty(bus, path, "org.freedesktop.UDisks2.Block", "IdLabel");
        auto type = StringProperty(bus, path, "org.freedesktop.UDisks2.Block", "IdType");
        if (!label || !type) return std::nullopt;
        return Identity{*label, *type,
                        StringProperty(bus, path, "org.freedesktop.UDisks2.Block", "IdUUID").value_or("")};
    });
}

BusResult UDisks::Unmount(const std::string& kernelName) {
    BusResult r = OnBus([&](sd_bus* bus) -> BusResult {
        if (bus == nullptr) return NoBus();
        return CallWithOptions(bus, BlockObject(kernelName), "org.freedesktop.UDisks2.Filesystem", "Unmount");
    });
    if (r.error.find("NotMounted") != std::string::npos) return {};
    return r;
}

BusResult UDisks::Mount(const std::string& kernelName) {
    return OnBus([&](sd_bus* bus) -> BusResult {
        if (bus == nullptr) return NoBus();
        return CallWithOptions(bus, BlockObject(kernelName), "org.freedesktop.UDisks2.Filesystem", "Mount");
    });
}

BusResult UDisks::PowerOff(const std::string& kernelName) {
    return OnBus([&](sd_bus* bus) -> BusResult {
        if (bus == nullptr) return NoBus();
        const std::string block = BlockObject(kernelName);
        const auto drive = ObjectProperty(bus, block, "org.freedesktop.UDisks2.Block", "Drive");
        if (!drive) return {Veto::NoDevice, "", "udisks2 does not know " + kernelName};
        if (*drive == "/") {
            if (HasInterface(bus, block, "org.freedesktop.UDisks2.Loop", "BackingFile"))
                return CallWithOptions(bus, block, "org.freedesktop.UDisks2.Loop", "Delete");
            return {Veto::Failed, "", kernelName + " has no drive that could be powered off"};
        }
        if (BoolProperty(bus, *drive, "org.freedesktop.UDisks2.Drive", "CanPowerOff").value_or(false))
            return CallWithOptions(bus, *drive, "org.freedesktop.UDisks2.Drive", "PowerOff");
        return CallWithOptions(bus, *drive, "org.freedesktop.UDisks2.Drive", "Eject");
    });
}

BusResult UDisks::SetLabel(const std::string& kernelName, const std::string& label) {
    return OnBus([&](sd_bus* bus) -> BusResult {
        if (bus == nullptr) return NoBus();
        return CallWithOptions(bus, BlockObject(kernelName), "org.freedesktop.UDisks2.Filesystem", "SetLabel", &label);
    });
}

BusResult UDisks::Lock(const std::string& kernelName) {
    return OnBus([&](sd_bus* bus) -> BusResult {
        if (bus == nullptr) return NoBus();
        return CallWithOptions(bus, BlockObject(kernelName), "org.freedesktop.UDisks2.Encrypted", "Lock");
    });
}

} // namespace linuxbk
