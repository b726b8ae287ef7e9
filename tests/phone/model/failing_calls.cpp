#include "failing_calls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <crypt.h>
#include <cstddef>
#include <cstring>
#include <sys/types.h>

using failing_calls::Call;

namespace {

std::atomic<Call> g_failing{Call::none};
bool g_interrupted = false;

} // namespace

void failing_calls::fail(Call call) {
    g_failing = call;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the names are the linker's.
extern "C" {

ssize_t __real_write(int file, const void* data, std::size_t count);
int __real_fsync(int file);
int __real_renameat(int fromFolder, const char* from, int toFolder, const char* to);
char* __real_crypt_r(const char* phrase, const char* setting, crypt_data* data);
int __real_crypto_pwhash_argon2id(unsigned char* key, unsigned long long keyBytes,
                                  const char* phrase, unsigned long long phraseBytes,
                                  const unsigned char* salt, unsigned long long passes,
                                  std::size_t memory, int algorithm);

ssize_t __wrap_write(int file, const void* data, std::size_t count) {
    const Call failing = file > 2 ? g_failing.load() : Call::none;
    if (failing == Call::write) {
        errno = ENOSPC;
        return -1;
    }
    if (failing == Call::interruptedWrite) {
        g_interrupted = !g_interrupted;
        if (g_interrupted) {
            errno = EINTR;
            return -1;
        }
    }
    return __real_write(file, data,
                        failing == Call::shortWrite ? std::min<std::size_t>(count, 1) : count);
}

int __wrap_fsync(int file) {
    if (g_failing == Call::fsync) {
        errno = EIO;
        return -1;
    }
    return __real_fsync(file);
}

int __wrap_renameat(int fromFolder, const char* from, int toFolder, const char* to) {
    if (g_failing == Call::rename) {
        errno = EROFS;
        return -1;
    }
    return __real_renameat(fromFolder, from, toFolder, to);
}

char* __wrap_crypt_r(const char* phrase, const char* setting, crypt_data* data) {
    if (g_failing == Call::crypt) {
        errno = EINVAL;
        return std::strcpy(data->output, "*0");
    }
    return __real_crypt_r(phrase, setting, data);
}

int __wrap_crypto_pwhash_argon2id(unsigned char* key, unsigned long long keyBytes,
                                  const char* phrase, unsigned long long phraseBytes,
                                  const unsigned char* salt, unsigned long long passes,
                                  std::size_t memory, int algorithm) {
    if (g_failing == Call::argon2) {
        errno = ENOMEM;
        return -1;
    }
    return __real_crypto_pwhash_argon2id(key, keyBytes, phrase, phraseBytes, salt, passes, memory,
                                         algorithm);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
