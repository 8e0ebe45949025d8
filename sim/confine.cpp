// Runs a program under the system call filter that systemd would give it: the settings SystemCallFilter,
// RestrictAddressFamilies, MemoryDenyWriteExecute, RestrictNamespaces and NoNewPrivileges of a unit. Stricter in one
// thing: a call or address family that the unit refuses ends the program with SIGSYS, so that no test can overlook it.
// Usage: kado-confine CALLS FAMILIES PROGRAM [ARGUMENT...]
// CALLS is a file with the names of the calls allowed, a line each; FAMILIES is for instance "AF_UNIX AF_INET".

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <sched.h>
#include <seccomp.h>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string &what)
{
    std::fprintf(stderr, "kado-confine: %s\n", what.c_str());
    std::exit(125);
}

class Filter {
public:
    Filter() : context_(seccomp_init(SCMP_ACT_KILL_PROCESS)) {}
    Filter(const Filter &) = delete;
    Filter &operator=(const Filter &) = delete;
    ~Filter() { seccomp_release(context_); }

    void allow(int call) { add(SCMP_ACT_ALLOW, call, {}); }
    /// Only where the argument's bits under `mask` are `value`.
    void allow(int call, unsigned argument, scmp_datum_t mask, scmp_datum_t value)
    {
        add(SCMP_ACT_ALLOW, call, {SCMP_CMP(argument, SCMP_CMP_MASKED_EQ, mask, value)});
    }
    void refuse(int call, int error) { add(SCMP_ACT_ERRNO(static_cast<unsigned>(error)), call, {}); }
    void refuse(int call, int error, unsigned argument, scmp_datum_t mask)
    {
        add(SCMP_ACT_ERRNO(static_cast<unsigned>(error)), call, {SCMP_CMP(argument, SCMP_CMP_MASKED_EQ, mask, mask)});
    }
    void load()
    {
        if (seccomp_load(context_) != 0) // sets NoNewPrivileges on its way
            fail("the filter was not accepted");
    }

private:
    void add(unsigned action, int call, std::initializer_list<scmp_arg_cmp> conditions)
    {
        if (seccomp_rule_add_array(context_, action, call, static_cast<unsigned>(conditions.size()), conditions.begin())
            != 0)
            fail("no rule for the system call " + std::to_string(call));
    }

    scmp_filter_ctx context_;
};

int familyOf(const std::string &name)
{
    const struct {
        const char *name;
        int family;
    } families[] = {{"AF_UNIX", AF_UNIX}, {"AF_INET", AF_INET}, {"AF_INET6", AF_INET6}, {"AF_NETLINK", AF_NETLINK}};
    for (const auto &known : families) {
        if (name == known.name)
            return known.family;
    }
    fail("no address family \"" + name + '"');
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 4)
        fail("usage: kado-confine CALLS FAMILIES PROGRAM [ARGUMENT...]");
    Filter filter;

    std::ifstream calls(argv[1]);
    int allowed = 0;
    for (std::string name; std::getline(calls, name);) {
        const int call = seccomp_syscall_resolve_name(name.c_str());
        if (call < 0) // another architecture's
            continue;
        ++allowed;
        switch (call) {
        case SCMP_SYS(socket):
        case SCMP_SYS(mmap):
        case SCMP_SYS(mprotect):
        case SCMP_SYS(clone):
        case SCMP_SYS(clone3):
            break; // below
        default:
            filter.allow(call);
        }
    }
    if (allowed == 0)
        fail(std::string("no calls in ") + argv[1]);

    std::istringstream families(argv[2]);
    for (std::string family; families >> family;)
        filter.allow(SCMP_SYS(socket), 0, ~scmp_datum_t{0}, static_cast<scmp_datum_t>(familyOf(family)));

    constexpr unsigned Protection = 2;
    filter.allow(SCMP_SYS(mmap), Protection, PROT_EXEC, 0);
    filter.allow(SCMP_SYS(mmap), Protection, PROT_WRITE, 0);
    filter.refuse(SCMP_SYS(mmap), EPERM, Protection, PROT_WRITE | PROT_EXEC);
    filter.allow(SCMP_SYS(mprotect), Protection, PROT_EXEC, 0);
    filter.refuse(SCMP_SYS(mprotect), EPERM, Protection, PROT_EXEC);

    constexpr scmp_datum_t Namespaces = CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWUSER
        | CLONE_NEWPID | CLONE_NEWNET;
    filter.allow(SCMP_SYS(clone), 0, Namespaces, 0);
    filter.refuse(SCMP_SYS(clone3), ENOSYS); // whose flags no filter can see

    filter.load();
    ::execvp(argv[3], argv + 3);
    fail(std::string(argv[3]) + ": " + std::strerror(errno));
}
