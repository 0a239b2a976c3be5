// What surrounds the command: its exit status, signals, namespaces, other users, what remains.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "program.h"

namespace {

namespace fs = std::filesystem;

// A folder for one test that everybody may use, removed in the end.
class SharedFolder {
public:
    SharedFolder() : path(fs::temp_directory_path() / "marvane-test.XXXXXX") {
        std::string name = path;
        path = mkdtemp(name.data());
        fs::permissions(path, fs::perms::all);
    }
    ~SharedFolder() { fs::remove_all(path); }
    SharedFolder(const SharedFolder&) = delete;
    SharedFolder& operator=(const SharedFolder&) = delete;

    bool IsEmpty() const { return fs::is_empty(path); }
    const fs::path& Path() const { return path; }

private:
    fs::path path;
};

// marvane-sim with its testbed in a folder that nobody else uses.
Words InFolder(const SharedFolder& folder, Words words) {
    words.insert(words.begin(), {"env", "TMPDIR=" + folder.Path().string()});
    return words;
}

Words WithOneBoard(const std::string& script) {
    return Simulated({"--board", "k44"}, script);
}

// As another user, who has copies of the programs where anybody may execute them.
Words AsUser(int user, const SharedFolder& folder, Words words) {
    for (std::string& word : words) {
        for (const std::string program : {MARVANE_SIM, RAW_CLIENT}) {
            const auto place = word.find(program);
            if (place == std::string::npos) continue;
            const fs::path copy = folder.Path() / fs::path(program).filename();
            fs::copy_file(program, copy, fs::copy_options::skip_existing);
            word.replace(place, program.size(), copy);
        }
    }
    const std::string id = std::to_string(user);
    words.insert(words.begin(), {"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups"});
    return words;
}

bool GrantsUserNamespaces(int user) {
    return RunProgram(AsUser(user, SharedFolder(), {"unshare", "--user", "--ipc", "true"}))
               .status == 0;
}

TEST(EnvironmentTest, ExitStatusIsTheCommandsOrSaysWhatFailed) {
    struct Case {
        const char* what;
        Words words;
        int status;
        const char* complaint;
    };
    const auto with = [&](Words words) {
        words.insert(words.begin(), MARVANE_SIM);
        return words;
    };
    // clang-format off
    const Case cases[] = {
        {"its own", WithOneBoard("exit 7"), 7, ""},
        {"a signal", WithOneBoard("kill -9 $$"), 137, ""},
        {"not found", with({"--board", "k44", "--", "no-such-command"}), 127, "No such file"},
        {"no program", with({"--board", "k44", "--", "/etc/passwd"}), 126, "Permission denied"},
        {"no command", with({"--board", "k44"}), 125, "what to do is missing"},
        {"no board", with({"--", "true"}), 125, "--board is required"},
        {"no such option", with({"--board", "k44", "--fast", "true"}), 125, "no option --fast"},
        {"no such model", with({"--board", "k41", "true"}), 125, "models are k40, k44 and k50"},
        {"speed", with({"--board", "k44@48", "true"}), 125, "the speed is 12 or 480"},
        {"number", with({"--board", "16=k44", "true"}), 125, "device numbers are 0 to 15"},
        {"twice", with({"--board", "1=k44", "--board", "1=k40", "true"}), 125, "another board"},
        {"identity", with({"--board", "k44:id=8", "true"}), 125, "identities are 0 to 7"},
        {"setting", with({"--board", "k44:door=1", "true"}), 125, "there is no setting door"},
        {"any order", with({"--board", "k44:serial1=loop:eeprom=24LC64:blank:id=3", "true"}), 0,
         ""},
        {"serial line", with({"--board", "k44", "--serial", "0=modem", "true"}), 125, "none, loop"},
        {"part", with({"--board", "k44:eeprom=24LC65", "true"}), 125, "the parts are 24LC01"},
        {"seed", with({"--board", "k44", "--seed", "0", "true"}), 125, "not in range"},
        {"options of the command", with({"--board", "k44", "test", "-d", "/tmp"}), 0, ""},
        {"join: not found", WithOneBoard("$SIM join -- no-such-command"), 127, "No such file"},
        {"join: no simulation", with({"join", "--pid", "1", "true"}), 125, "no simulation runs"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Finished finished = RunProgram(c.words);
        EXPECT_EQ(finished.status, c.status);
        EXPECT_NE(finished.complaints.find(c.complaint), std::string::npos) << finished.complaints;
        EXPECT_EQ(finished.complaints.empty(), *c.complaint == '\0') << finished.complaints;
    }
}

TEST(EnvironmentTest, NothingRemainsWhateverEndsIt) {
    struct Case {
        const char* what;
        const char* script;
        int signal, status;
    };
    const Case cases[] = {
        {"exit", "echo ready", 0, 0},
        {"unplugged at the end", "$SIM ctl 0 unplug; echo ready", 0, 0},
        {"SIGTERM", "echo ready; exec sleep 60", SIGTERM, 128 + SIGTERM},
        {"SIGHUP", "echo ready; exec sleep 60", SIGHUP, 128 + SIGHUP},
        {"the command ends in its own way",
         "trap 'exit 3' TERM; echo ready; while :; do sleep 0.1; done", SIGTERM, 3},
        {"answers still due",
         "$SIM ctl 0 fail 1 delay 60000; $CLIENT k44 0 75/1 >/dev/null 2>&1 & "
         "until $SIM ctl 0 log | grep -q 75; do :; done; $CLIENT k44 0 82/1 >/dev/null 2>&1 & "
         "sleep 0.2; echo ready",
         0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const SharedFolder folder;
        Program program(InFolder(folder, WithOneBoard(c.script)));
        EXPECT_EQ(program.ReadLine(), "ready");
        if (c.signal != 0) program.Signal(c.signal);
        EXPECT_EQ(program.Wait().status, c.status);
        EXPECT_TRUE(folder.IsEmpty());
    }
}

TEST(EnvironmentTest, NextSimulationRemovesWhatAKilledOneLeft) {
    const SharedFolder folder;
    Program killed(InFolder(folder, WithOneBoard("echo ready; exec sleep 3 >/dev/null 2>&1")));
    EXPECT_EQ(killed.ReadLine(), "ready");
    EXPECT_FALSE(folder.IsEmpty());
    killed.Signal(SIGKILL);  // the command goes on for a while
    EXPECT_EQ(killed.Wait().status, 128 + SIGKILL);
    EXPECT_EQ(RunProgram(InFolder(folder, WithOneBoard("exit 0"))).status, 0);
    EXPECT_TRUE(folder.IsEmpty());
}

TEST(EnvironmentTest, CommandHasAnIpcNamespaceThatJoinEnters) {
    if (RunProgram({"unshare", "--ipc", "true"}).status != 0 &&
        RunProgram({"unshare", "--user", "--ipc", "true"}).status != 0) {
        GTEST_SKIP() << "the kernel grants no IPC namespace";
    }
    const std::string here = fs::read_symlink("/proc/self/ns/ipc").string() + "\n";
    const std::string show = "readlink /proc/self/ns/ipc";

    Program program(WithOneBoard(show + "; $SIM ctl 0 input 1 on; echo ready; exec sleep 60"));
    const std::string inside = program.ReadLine() + "\n";
    EXPECT_NE(inside, here);
    EXPECT_EQ(program.ReadLine(), "ready");
    const std::string process = std::to_string(program.Process());
    const Finished joined =
        RunProgram({MARVANE_SIM, "join", "--pid", process, "--", "sh", "-c",
                    show + "; " RAW_CLIENT " k44 0 75/1; " MARVANE_SIM " ctl list"});
    EXPECT_EQ(joined, (Finished{0, inside + "0 0200000000\n0 k44 480 plugged\n", ""}));

    EXPECT_EQ(RunSimulated({"--board", "k44", "--share-ipc"}, show), (Finished{0, here, ""}));
}

TEST(EnvironmentTest, SeveralSimulationsRunBesideAndInsideEachOther) {
    Program other(Simulated({"--board", "3=k50"}, "echo ready; exec sleep 60"));
    other.ReadLine();
    const Finished inner = RunSimulated(
        {"--board", "1=k40"},
        "$SIM --board 2=k50 -- sh -c '$SIM ctl list; $CLIENT k44 2 75/1'; $SIM ctl list; "
        "$SIM ctl --pid " +
            std::to_string(other.Process()) + " list");
    EXPECT_EQ(inner, (Finished{0,
                               "2 k50 480 plugged\n0 0000000000\n1 k40 480 plugged\n"
                               "3 k50 480 plugged\n",
                               ""}));
}

class OtherUserTest : public testing::Test {
protected:
    // One that no other test at the same time is, and no account.
    const int user = 20000 + getpid() % 40000;
    const std::string userLine = std::to_string(user) + "\n";

    void SetUp() override {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "ThreadSanitizer's thread keeps marvane-sim out of a user namespace";
#endif
        if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
        if (!GrantsUserNamespaces(user)) GTEST_SKIP() << "users may not make namespaces here";
    }

    Finished RunAsUser(const Words& words) {
        return RunProgram(AsUser(user, folder, words));
    }

    SharedFolder folder;
};

TEST_F(OtherUserTest, NeedsNoPrivilegesAndFindsTheOnlySimulation) {
    const Words list = {MARVANE_SIM, "ctl", "list"};
    EXPECT_EQ(RunAsUser(list), (Finished{1, "", "marvane-sim: no simulation is running\n"}));

    Program one(AsUser(user, folder, WithOneBoard("readlink /proc/self/ns/ipc; exec sleep 60")));
    const std::string inside = one.ReadLine() + "\n";
    EXPECT_EQ(RunAsUser(list), (Finished{0, "0 k44 480 plugged\n", ""}));
    EXPECT_EQ(RunAsUser({MARVANE_SIM, "join", "--", "sh", "-c",
                         ("id -u; readlink /proc/self/ns/ipc; " RAW_CLIENT " k44 0 75/1")}),
              (Finished{0, userLine + inside + "0 0000000000\n", ""}));

    Program other(AsUser(user, folder, WithOneBoard("echo ready; exec sleep 60")));
    other.ReadLine();
    const Finished several = RunAsUser(list);
    EXPECT_EQ(several.status, 1);
    EXPECT_NE(several.complaints.find("choose one with --pid"), std::string::npos);
}

// A user namespace whose owner may make no IPC namespaces stands for a kernel that refuses. The
// semaphores and their key file are in an IPC namespace and a /tmp of the test's own.
TEST_F(OtherUserTest, StopsBesideLiveBoardsWhereTheKernelRefuses) {
    const std::string refusing =
        "cd $(dirname $SIM) && mkdir tmp && mount --bind tmp /tmp && SIM=./marvane-sim || exit 99\n"
        "echo 0 > /proc/sys/user/max_ipc_namespaces || exit 99\n"
        "try() { $SIM --board k44 $1 -- echo ran; echo $?; }\n"
        "try\n"
        "touch /tmp/Sem_K40Mutex\n"
        "python3 - <<'EOF' && try && try --share-ipc\n"
        "import ctypes\n"
        "libc = ctypes.CDLL(None)\n"
        "key = libc.ftok(b'/tmp/Sem_K40Mutex', 1)\n"
        "assert key != -1 and libc.semget(key, 1, 0o1666) != -1\n"
        "EOF\n";
    const Finished finished =
        RunAsUser({"env", "-u", "LD_PRELOAD", ("SIM=" MARVANE_SIM), "unshare", "--user",
                   "--map-root-user", "--ipc", "--mount", "sh", "-c", refusing});
    if (finished.status == 99) GTEST_SKIP() << "no such namespace can be made here";
    EXPECT_EQ(finished.output, "ran\n0\n125\nran\n0\n");
    EXPECT_NE(finished.complaints.find("programs on live boards use this machine's semaphores"),
              std::string::npos);
}

}  // namespace
