// Preloaded into a host: has one call in a row fail, as FAIL_KIND and FAIL_AT say, or every call
// from that one on (FAIL_FOREVER), and moves the wall clock by CLOCK_STEP seconds. Nothing happens
// before the host says setFailures(true).
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

static atomic_bool active;
static atomic_long calls;
static const char* kind = "";
static long at;
static bool forever;
static long clockStep;

static long number(const char* name) {
    const char* text = getenv(name);
    return text != NULL ? atol(text) : 0;
}

__attribute__((constructor)) static void begin(void) {
    if (getenv("FAIL_KIND") != NULL) kind = getenv("FAIL_KIND");
    at = number("FAIL_AT");
    forever = number("FAIL_FOREVER") != 0;
    clockStep = number("CLOCK_STEP");
}

void setFailures(bool mayHappen) {
    active = mayHappen;
    if (!mayHappen) dprintf(STDERR_FILENO, "calls %ld\n", atomic_load(&calls));
}

static bool fails(const char* what) {
    if (!active || strcmp(kind, what) != 0) return false;
    const long turn = ++calls;
    return turn == at || (forever && at > 0 && turn > at);
}

#define REPLACE(what, failure, value, type, name, parameters, arguments)      \
    type name parameters {                                                    \
        static type(*real) parameters;                                        \
        if (real == NULL) real = (type(*) parameters)dlsym(RTLD_NEXT, #name); \
        if (fails(what)) {                                                    \
            errno = failure;                                                  \
            return value;                                                     \
        }                                                                     \
        return real arguments;                                                \
    }

#define ALLOCATE(name, parameters, arguments)                 \
    extern void* __libc_##name parameters;                    \
    void* name parameters {                                   \
        if (!fails("memory")) return __libc_##name arguments; \
        errno = ENOMEM;                                       \
        return NULL;                                          \
    }

ALLOCATE(malloc, (size_t size), (size))
ALLOCATE(calloc, (size_t count, size_t size), (count, size))
ALLOCATE(realloc, (void* old, size_t size), (old, size))

REPLACE("thread", EAGAIN, EAGAIN, int, pthread_create,
        (pthread_t * thread, const pthread_attr_t* with, void* (*body)(void*), void* context),
        (thread, with, body, context))
REPLACE("system", EMFILE, -1, int, socket, (int a, int b, int c), (a, b, c))
REPLACE("system", EMFILE, -1, int, socketpair, (int a, int b, int c, int d[2]), (a, b, c, d))
REPLACE("system", ECONNREFUSED, -1, int, connect, (int s, const struct sockaddr* a, socklen_t n),
        (s, a, n))
REPLACE("system", ECONNRESET, -1, ssize_t, recv, (int s, void* p, size_t n, int f), (s, p, n, f))
REPLACE("system", EPIPE, -1, ssize_t, send, (int s, const void* p, size_t n, int f), (s, p, n, f))
REPLACE("system", EACCES, -1, int, mkdir, (const char* path, mode_t mode), (path, mode))
REPLACE("system", EACCES, -1, int, mknod, (const char* p, mode_t m, dev_t d), (p, m, d))
REPLACE("disk", EIO, -1, ssize_t, pread64, (int f, void* p, size_t n, off_t o), (f, p, n, o))
REPLACE("disk", EIO, -1, ssize_t, pwrite64, (int f, const void* p, size_t n, off_t o), (f, p, n, o))
REPLACE("disk", EIO, -1, int, fdatasync, (int file), (file))
REPLACE("disk", EIO, -1, int, unlink, (const char* path), (path))
REPLACE("environment", 0, NULL, char*, getenv, (const char* name), (name))
REPLACE("environment", 0, NULL, char*, secure_getenv, (const char* name), (name))
REPLACE("environment", EINVAL, -1, int, setenv, (const char* n, const char* v, int o), (n, v, o))
REPLACE("environment", EINVAL, -1, int, unsetenv, (const char* name), (name))
REPLACE("environment", EINVAL, -1, int, putenv, (char* assignment), (assignment))

int clock_gettime(clockid_t clock, struct timespec* now) {
    static int (*real)(clockid_t, struct timespec*);
    if (real == NULL)
        real = (int (*)(clockid_t, struct timespec*))dlsym(RTLD_NEXT, "clock_gettime");
    const int result = real(clock, now);
    if (active && clock == CLOCK_REALTIME) now->tv_sec += clockStep;
    return result;
}

time_t time(time_t* to) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (to != NULL) *to = now.tv_sec;
    return now.tv_sec;
}
