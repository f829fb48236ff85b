#pragma once
// A client of the udisks2 storage daemon on the system bus (sd-bus). Unless
// the process allows it (the window, or kestrinectl --interactive), every
// call passes auth.no_user_interaction, so a missing authorisation is a
// refusal at once, never a password prompt nobody sees. The process keeps one
// connection to the system bus, opened when first needed and again when it
// broke; whether udisks2 runs is asked each time, as the daemon may come and
// go.
#include <optional>
#include <string>

namespace linuxbk {

// Why a request to the storage stack was refused.
enum class Veto { None, Busy, NotAuthorised, Failed, SystemDrive, NoDevice };

const char* VetoName(Veto veto); // "busy", "not authorised", ...

struct BusResult {
    Veto veto = Veto::None;
    std::string error;  // the D-Bus error name, "" on success
    std::string detail; // its message
    bool ok() const { return veto == Veto::None; }
};

class UDisks {
public:
    // Whether polkit may ask the user (through the session's authentication
    // agent) when an action needs authorisation; off unless set.
    static void AllowInteraction(bool allow);

    // True when udisks2 owns its name on the system bus now.
    static bool Available();

    // The object path udisks2 gives a block device of that kernel name.
    static std::string BlockObject(const std::string& kernelName);

    // IdLabel and IdType of a block device; nothing when unknown to udisks2.
    struct Identity {
        std::string label, type, uuid;
    };
    static std::optional<Identity> IdOf(const std::string& kernelName);

    static BusResult Unmount(const std::string& kernelName);
    // Mounts a file system where udisks2 mounts it for the caller (/media/<user>/<label>).
    static BusResult Mount(const std::string& kernelName);
    // Powers the drive of a block device off (Drive.PowerOff when it can,
    // else Drive.Eject); a loop device is deleted instead (Loop.Delete).
    static BusResult PowerOff(const std::string& kernelName);
    static BusResult SetLabel(const std::string& kernelName, const std::string& label);
    // Locks an unlocked encrypted device (Encrypted.Lock on the device that
    // holds the encrypted data): its cleartext device goes away.
    static BusResult Lock(const std::string& kernelName);
};

} // namespace linuxbk
