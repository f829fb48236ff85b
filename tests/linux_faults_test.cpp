// Faults and hostile users on the Linux backend, each answered as designed:
// a network mount whose server never answers, drives mounted and unmounted
// back to back, a settings file that is read-only, private or a link, a
// sibling tool on a drive others could write, another user trying to take
// the single-instance channel, and a look at holders that cannot see every
// process. Most need root (mounts, other users); elsewhere they are skipped.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "linux_test_support.h"
#include "platform/linux/events.h"
#include "platform/linux/processes.h"
#include "platform/linux/profile_file.h"
#include "platform/linux/system.h"

namespace {

namespace fs = std::filesystem;
using linuxbk::System;

#define KESTRINE_REQUIRE_ROOT()                                                                                        \
    do {                                                                                                               \
        if (::geteuid() != 0) GTEST_SKIP() << "needs root";                                                            \
    } while (0)

// Runs body in a child process (as another user, when uid is given); the
// child's exit code: 0 when body returned true.
int InChild(const std::function<bool()>& body, uid_t uid = 0) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        if (uid != 0 && (::setgid(uid) != 0 || ::setuid(uid) != 0)) ::_exit(3);
        ::_exit(body() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class TempFolder {
public:
    TempFolder() {
        std::string pattern = (fs::temp_directory_path() / "kestrine-faults-XXXXXX").string();
        if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ec;
        if (!path_.empty()) fs::remove_all(path_, ec);
    }
    const std::string& Path() const { return path_; }
    // The same folder as the program names it: "C:\tmp\kestrine-faults-xxxx\name".
    std::string Windows(const std::string& name) const {
        std::string p = "C:" + path_ + "/" + name;
        for (char& c : p)
            if (c == '/') c = '\\';
        return p;
    }

private:
    std::string path_;
};

// A network share whose server never answers: a FUSE file system of the
// sshfs kind that nobody serves, in a mount namespace of its own so that
// nothing else on the machine meets it. In that namespace, kestrinectl must
// list the drives and end; the dead share is listed without sizes.
TEST(LinuxFaults, ADeadNetworkMountNeverHoldsTheListOrTheProgramsEnd) {
    KESTRINE_REQUIRE_ROOT();
    if (!fs::exists("/dev/fuse")) GTEST_SKIP() << "needs /dev/fuse";
    TempFolder folder;
    ASSERT_FALSE(folder.Path().empty());
    const std::string share = folder.Path() + "/share", out = folder.Path() + "/list.json";
    fs::create_directories(share);
    const int code = InChild([&] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return false;
        const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
        if (fuse < 0) return false;
        const std::string options = "fd=" + std::to_string(fuse) + ",rootmode=40000,user_id=0,group_id=0";
        if (::mount("nobody@deadhost:/srv", share.c_str(), "fuse.sshfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0)
            return false;
        const int rc = std::system(("timeout 60 " + std::string(KESTRINECTL_PATH) + " list --json >" + out).c_str());
        ::close(fuse); // the share's connection ends: whatever waited on it gives up
        ::umount2(share.c_str(), MNT_DETACH);
        return WIFEXITED(rc) && WEXITSTATUS(rc) == 0;
    });
    EXPECT_EQ(code, 0) << "kestrinectl list did not end by itself (124: still running after 60 s)\n" << Slurp(out);
    const auto list = nlohmann::json::parse(Slurp(out), nullptr, false);
    ASSERT_TRUE(list.is_object()) << Slurp(out);
    bool listed = false;
    for (const auto& d : list.at("drives"))
        if (d.at("mountPoint") == share) {
            listed = true;
            EXPECT_EQ(d.at("kind"), "Network");
            EXPECT_EQ(d.at("totalBytes"), 0) << "a share that does not answer has no size";
        }
    EXPECT_TRUE(listed) << list.dump();
}

// The mount table changes faster than events are handled: each drive that
// came and went again is still told, by name, as it came and as it went.
TEST(LinuxFaults, DrivesMountedAndUnmountedBackToBackAreAllSeen) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    linuxtest::LoopDrives loops;
    linuxtest::LoopDrive* d = loops.Add("BLINK", false);
    ASSERT_TRUE(d);
    const std::string point = loops.Dir() + "/blink";
    fs::create_directories(point);
    System::Options o;
    o.events = false;
    System sys(o);
    linuxbk::EventSources::Options options;
    options.udev = false;
    linuxbk::EventSources events(sys.Map(), options);

    constexpr int kPairs = 20;
    ASSERT_TRUE(linuxtest::Run("for i in $(seq " + std::to_string(kPairs) + "); do mount " + d->device + " " + point +
                               " && umount " + point + "; done"));
    int added = 0, removed = 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while ((added < kPairs || removed < kPairs) && std::chrono::steady_clock::now() < until) {
        for (const auto& e : events.Wait(200)) {
            if (e.device != d->device) continue;
            if (e.kind == linuxbk::SystemEvent::Kind::DriveAdded) {
                ++added;
                // While it is delivered, the drive is there to be seen.
                ASSERT_TRUE(e.table);
                sys.Map().Pin(*e.table);
                const auto* drive = sys.Map().DriveOf(e.path1);
                EXPECT_TRUE(drive != nullptr && drive->mountPoint == point);
                sys.Map().Unpin();
            }
            if (e.kind == linuxbk::SystemEvent::Kind::DriveRemoved) ++removed;
        }
    }
    EXPECT_EQ(added, kPairs);
    EXPECT_EQ(removed, kPairs);
}

// Saving settings writes a new file and puts it in the old one's place: a
// private file stays private, a link stays a link to the file it names, and
// a read-only file is left alone (the save fails as a step).
TEST(LinuxFaults, SettingsKeepTheirPermissionsTheirLinkAndARefusalToBeWritten) {
    TempFolder folder;
    ASSERT_FALSE(folder.Path().empty());
    System::Options o;
    o.events = false;
    System sys(o);
    linuxbk::LinuxVolumes& volumes = sys.Volumes();
    linuxbk::ProfileFiles& profile = sys.Profile();
    auto save = [&](const std::string& name, const std::string& value) {
        const std::string fresh = folder.Windows(name + ".new");
        profile.WritePrivateProfileStringA("Settings", "cmbSize", value, fresh);
        const bool moved = volumes.MoveFileExA(fresh, folder.Windows(name),
                                               platform::kMoveFileReplaceExisting | platform::kMoveFileWriteThrough);
        if (!moved) volumes.DeleteFileA(fresh);
        return moved;
    };
    const std::string dir = folder.Path();

    std::ofstream(dir + "/private.ini") << "[Settings]\r\ncmbSize=0\r\n";
    fs::permissions(dir + "/private.ini", fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_TRUE(save("private.ini", "1"));
    EXPECT_EQ(fs::status(dir + "/private.ini").permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_NE(Slurp(dir + "/private.ini").find("cmbSize=1"), std::string::npos);

    fs::create_directories(dir + "/real");
    std::ofstream(dir + "/real/kestrine.ini") << "[Settings]\r\ncmbSize=0\r\n";
    fs::create_symlink("real/kestrine.ini", dir + "/linked.ini");
    ASSERT_TRUE(save("linked.ini", "1"));
    EXPECT_TRUE(fs::is_symlink(dir + "/linked.ini"));
    EXPECT_NE(Slurp(dir + "/real/kestrine.ini").find("cmbSize=1"), std::string::npos);

    const std::string before = "[Settings]\r\ncmbSize=0\r\n";
    std::ofstream(dir + "/readonly.ini") << before;
    fs::permissions(dir + "/readonly.ini", fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    EXPECT_FALSE(save("readonly.ini", "1"));
    EXPECT_EQ(Slurp(dir + "/readonly.ini"), before);
    EXPECT_FALSE(fs::exists(dir + "/readonly.ini.new"));
}

// Installed where its user cannot write (as a package puts it), the program
// keeps Kestrine.ini in the user's configuration folder and reads it from
// there; where its own folder can be written, the file stays beside it.
TEST(LinuxFaults, SettingsLiveInTheConfigurationFolderWhenTheProgramsFolderIsNotWritable) {
    KESTRINE_REQUIRE_ROOT();
    const std::string exe = fs::read_symlink("/proc/self/exe").string();
    const std::string folder = exe.substr(0, exe.rfind('/'));
    std::string windowsFolder = "C:" + folder;
    for (char& c : windowsFolder)
        if (c == '/') c = '\\';
    const std::string ini = windowsFolder + "\\Kestrine.ini";
    System::Options o;
    o.events = false;
    // Root can write the build's folder: the designed place.
    EXPECT_EQ(System(o).Map().ToNative(ini), folder + "/Kestrine.ini");

    TempFolder home;
    ASSERT_FALSE(home.Path().empty());
    ASSERT_EQ(::chown(home.Path().c_str(), 65534, 65534), 0);
    const std::string config = home.Path() + "/config";
    ::setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    const int code = InChild(
        [&] {
            if (::access(folder.c_str(), W_OK) == 0) return false; // the test needs a folder others cannot write
            {
                System sys(o);
                if (sys.Map().ToNative(ini) != config + "/kestrine/Kestrine.ini") return false;
                sys.Profile().WritePrivateProfileStringA("Settings", "cmbSize", "2", ini + ".new");
                if (!sys.Volumes().MoveFileExA(ini + ".new", ini, platform::kMoveFileReplaceExisting)) return false;
            }
            // The next start reads it from there.
            System again(o);
            std::vector<char> buffer(256);
            const auto n = again.Profile().GetPrivateProfileSectionA("Settings", buffer, ini);
            return std::string(buffer.data(), n).find("cmbSize=2") != std::string::npos;
        },
        65534);
    ::unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(code, 0);
    EXPECT_NE(Slurp(config + "/kestrine/Kestrine.ini").find("cmbSize=2"), std::string::npos);
    EXPECT_FALSE(fs::exists(folder + "/Kestrine.ini.new"));
}

// With root's rights, the search for the sibling tools finds a program
// only where no one but root could have put it.
TEST(LinuxFaults, AsRootASiblingToolIsFoundOnlyWhereNoOneElseCouldHavePutIt) {
    KESTRINE_REQUIRE_LOOP_DEVICES();
    linuxtest::LoopDrives loops;
    linuxtest::LoopDrive* d = loops.Add("TOOLS");
    ASSERT_TRUE(d && d->mounted);
    System::Options o;
    o.events = false;
    System sys(o);
    std::string root;
    for (const auto& drive : sys.Map().Drives())
        if (drive.mountPoint == d->mountPoint) root = drive.Root();
    ASSERT_FALSE(root.empty());
    const std::string folder = d->mountPoint + "/Tools", program = folder + "/Quorra.exe";
    fs::create_directories(folder);
    std::ofstream(program) << "#!/bin/sh\n";
    ::chmod(loops.Dir().c_str(), 0755); // others may look in
    ::chmod(d->mountPoint.c_str(), 0755);
    ::chmod(folder.c_str(), 0755);
    ::chmod(program.c_str(), 0755);
    const std::string asked = root + "Tools\\Quorra.exe";
    EXPECT_EQ(sys.Volumes().Dir(asked, 0), "Quorra.exe");

    ::chmod(folder.c_str(), 0777); // anyone could have put it there
    EXPECT_EQ(sys.Volumes().Dir(asked, 0), "");
    ::chmod(folder.c_str(), 0755);
    ASSERT_EQ(::chown(program.c_str(), 4321, 4321), 0); // another user's
    EXPECT_EQ(sys.Volumes().Dir(asked, 0), "");
    // Other users see what is there; only root is careful.
    // (The child's letters are its own: other tests may mount drives meanwhile.)
    EXPECT_EQ(InChild(
                  [&] {
                      System other(o);
                      for (const auto& drive : other.Map().Drives())
                          if (drive.mountPoint == d->mountPoint)
                              return other.Volumes().Dir(drive.Root() + "Tools\\Quorra.exe", 0) == "Quorra.exe";
                      return false;
                  },
                  65534),
              0);
}

// Another user cannot take the program's single-instance name nor talk to it.
TEST(LinuxFaults, TheSingleInstanceChannelIsThisUsersAlone) {
    KESTRINE_REQUIRE_ROOT();
    const std::string title = "Kestrine faults " + std::to_string(::getpid());
    // What the name used to be, taken first by someone else.
    const std::string abstract = std::string(1, '\0') + "kestrine.0.ThunderRT6Main." + title;
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    const pid_t squatter = ::fork();
    if (squatter == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(3);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        std::memcpy(a.sun_path, abstract.data(), abstract.size());
        ::bind(fd, reinterpret_cast<sockaddr*>(&a),
               static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + abstract.size()));
        ::listen(fd, 1);
        const char ready = 'y';
        if (::write(pipeFds[1], &ready, 1) != 1) ::_exit(1);
        ::pause();
    }
    char ready = '?';
    ASSERT_EQ(::read(pipeFds[0], &ready, 1), 1);
    linuxbk::InstanceChannel channel;
    EXPECT_TRUE(channel.Claim("ThunderRT6Main", title)) << "the other user's name does not count";
    ::kill(squatter, SIGKILL);
    ::waitpid(squatter, nullptr, 0);

    // Its socket is out of other users' reach.
    const std::string path = linuxbk::InstanceChannel::Folder() + "/ThunderRT6Main." + title;
    auto connectTo = [&] {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        std::memcpy(a.sun_path, path.data(), path.size());
        if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) return fd;
        ::close(fd);
        return -1;
    };
    EXPECT_EQ(InChild([&] { return connectTo() < 0; }, 65534), 0);

    // A client that connects and says nothing holds nothing up.
    const int silent = connectTo();
    ASSERT_GE(silent, 0);
    EXPECT_TRUE(channel.Requests().empty());
    ASSERT_TRUE(linuxbk::InstanceChannel::Send("ThunderRT6Main", title, "raise"));
    EXPECT_EQ(channel.Requests(), std::vector<std::string>{"raise"});
    ::close(silent);
}

// A user who cannot look into every process is told how many were left out.
TEST(LinuxFaults, WhoCountsTheProcessesItCouldNotInspect) {
    KESTRINE_REQUIRE_ROOT();
    System::Options o;
    o.events = false;
    EXPECT_EQ(InChild(
                  [&] {
                      System sys(o);
                      linuxbk::LinuxProcesses processes(sys.Map());
                      processes.WhoHolds("C:\\");
                      return processes.Uninspected() > 0; // this test's own process, root's, among them
                  },
                  65534),
              0);
    System sys(o);
    linuxbk::LinuxProcesses processes(sys.Map());
    processes.WhoHolds("C:\\");
    EXPECT_EQ(processes.Uninspected(), 0u);
}

} // namespace
