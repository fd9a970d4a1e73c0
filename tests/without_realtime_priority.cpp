// Test executables run without the privilege of real-time scheduling.
//
// The simulator makes a device's samples on the host's interface thread,
// inside its event handling, where a real device spends nothing of the
// host's. With the privilege that thread runs at the highest real-time
// priority, and a device that is never short of data keeps it busy for
// good: on a machine with as many such threads as cores, the processing
// threads below it never run again. Without the privilege every thread
// runs at normal priority, as for most users of the library, and the
// library ignores the refusal.
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct DropRealTimePrivilege {
    DropRealTimePrivilege() {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[2] = {};
        if (syscall(SYS_capget, &header, data) != 0) return;
        const unsigned bit = 1u << (CAP_SYS_NICE % 32);
        data[CAP_SYS_NICE / 32].effective &= ~bit;
        data[CAP_SYS_NICE / 32].permitted &= ~bit;
        data[CAP_SYS_NICE / 32].inheritable &= ~bit;
        syscall(SYS_capset, &header, data);
    }
} g_dropRealTimePrivilege;

}  // namespace
