/* Preloaded into the ARM programs that the armhf test run starts under
 * qemu-arm (through the emulator's etc/ld.so.preload), never shipped.
 *
 * qemu-user 7.2 passes waitid(P_PIDFD) through to the host kernel, which
 * accepts it, but refuses clone(CLONE_PIDFD). Qt's QProcess takes the first as
 * proof that the second works, and when the clone fails it believes the start
 * succeeded with pid -1: terminate() then becomes kill(-1, SIGTERM), a signal
 * to every process on the machine. Saying that P_PIDFD is not there makes Qt
 * use its plain fork() path, which qemu handles. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

typedef long (*appel_systeme)(long, ...);

long syscall(long numero, ...)
{
    /* The kernel takes at most six word-sized arguments on this ABI. */
    va_list liste;
    va_start(liste, numero);
    long a[6];
    for (int i = 0; i < 6; ++i)
        a[i] = va_arg(liste, long);
    va_end(liste);

    if (numero == SYS_waitid && a[0] == P_PIDFD) {
        errno = EINVAL;
        return -1;
    }
    static appel_systeme reel;
    if (!reel)
        reel = (appel_systeme)dlsym(RTLD_NEXT, "syscall");
    return reel(numero, a[0], a[1], a[2], a[3], a[4], a[5]);
}
