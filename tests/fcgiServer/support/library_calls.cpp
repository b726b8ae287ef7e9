#include "support/library_calls.h"

#include "recorded_device.h"

#include "app_log.h"
#include "web_debug.h"

#include <dlfcn.h>
#include <fcgiapp.h>
#include <sys/times.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>

namespace {

using library_calls::note;
using recorded_device::nameOf;

constexpr clock_t kNow = 100000; // ticks

struct State {
    std::size_t taken = 0;
    std::map<std::string, void*> functions;
    std::map<const pthread_mutex_t*, std::string> mutexes;
    std::deque<std::vector<std::string>> requests;
    std::vector<std::string> environment; // of the current request, as the next two are
    std::vector<char*> variables;
    std::string response;
    FCGX_Stream in{};
    FCGX_Stream out{};
    const char* loadingError = nullptr;
};
State state;
const pthread_mutex_t* lockedLast = nullptr;
int library; // its address is the handle of the plug-in library

std::string quoted(const std::string& text) {
    std::string result;
    for (const char c : text)
        result += c == '\r' ? "\\r" : c == '\n' ? "\\n" : std::string(1, c);
    return "'" + result + "'";
}

std::string formatted(const char* format, va_list arguments) {
    char text[1024];
    std::vsnprintf(text, sizeof text, format, arguments);
    return text;
}

// Records formatted output, with the format and with what it becomes.
int writeFormatted(const char* function, FCGX_Stream* stream, const char* format,
                   va_list arguments) {
    const std::string text = formatted(format, arguments);
    note(std::string(function) + "(" + nameOf(stream) + ", " + quoted(format) +
         ") = " + quoted(text));
    state.response += text;
    return static_cast<int>(text.size());
}

void noteMutex(const char* function, const pthread_mutex_t* mutex) {
    const auto found = state.mutexes.find(mutex);
    if (found != state.mutexes.end())
        note(std::string(function) + "(" + found->second + ")");
}

void noteWebDebug(const char* operation, const char* format, va_list arguments) {
    note(std::string("WebDebug::") + operation + "(" + quoted(formatted(format, arguments)) + ")");
}

} // namespace

void library_calls::reset() {
    recorded_device::reset();
    state = State();
    recorded_device::name(&state.in, "in");
    recorded_device::name(&state.out, "out");
}

library_calls::Calls library_calls::take() {
    const Calls all = recorded_device::calls();
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(state.taken);
    state.taken = all.size();
    return {first, all.end()};
}

void library_calls::note(const std::string& event) {
    recorded_device::record(event);
}

void library_calls::exportFunction(const std::string& name, void* function) {
    state.functions[name] = function;
}

void library_calls::sendRequest(const std::vector<std::string>& environment) {
    state.requests.push_back(environment);
}

const std::string& library_calls::response() {
    return state.response;
}

void library_calls::name(const pthread_mutex_t* mutex, const std::string& name) {
    state.mutexes[mutex] = name;
}

const pthread_mutex_t* library_calls::lastLocked() {
    return lockedLast;
}

// libfcgi, as far as the container may call it.

int FCGX_Init() {
    note("FCGX_Init()");
    return 0;
}

int FCGX_InitRequest(FCGX_Request* request, int socket, int flags) {
    note("FCGX_InitRequest(" + std::to_string(socket) + ", " + std::to_string(flags) + ")");
    *request = FCGX_Request{};
    request->ipcFd = -1;
    return 0;
}

int FCGX_Accept_r(FCGX_Request* request) {
    note("FCGX_Accept_r()");
    if (state.requests.empty())
        return -1;
    state.environment = state.requests.front();
    state.requests.pop_front();
    state.variables.clear();
    for (std::string& variable : state.environment)
        state.variables.push_back(variable.data());
    state.variables.push_back(nullptr);
    state.response.clear();
    request->envp = state.variables.data();
    request->in = &state.in;
    request->out = &state.out;
    return 0;
}

void FCGX_Finish_r(FCGX_Request*) {
    note("FCGX_Finish_r()");
}

char* FCGX_GetParam(const char* name, FCGX_ParamArray environment) {
    note("FCGX_GetParam(" + quoted(name) + ")");
    const std::size_t length = std::strlen(name);
    for (char** variable = environment; *variable != nullptr; ++variable)
        if (std::strncmp(*variable, name, length) == 0 && (*variable)[length] == '=')
            return *variable + length + 1;
    return nullptr;
}

int FCGX_FPrintF(FCGX_Stream* stream, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = writeFormatted("FCGX_FPrintF", stream, format, arguments);
    va_end(arguments);
    return count;
}

int FCGX_VFPrintF(FCGX_Stream* stream, const char* format, va_list arguments) {
    return writeFormatted("FCGX_VFPrintF", stream, format, arguments);
}

int FCGX_PutStr(const char* data, int size, FCGX_Stream* stream) {
    const std::string text(data, static_cast<std::size_t>(size));
    note("FCGX_PutStr(" + quoted(text) + ", " + std::to_string(size) + ", " + nameOf(stream) + ")");
    state.response += text;
    return size;
}

int FCGX_PutChar(int character, FCGX_Stream* stream) {
    note("FCGX_PutChar(" + std::to_string(character) + ", " + nameOf(stream) + ")");
    state.response += static_cast<char>(character);
    return character;
}

int FCGX_FFlush(FCGX_Stream* stream) {
    note("FCGX_FFlush(" + nameOf(stream) + ")");
    return 0;
}

// The device's log.

void app_log(int module, int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    note("app_log(" + std::to_string(module) + ", " + std::to_string(level) + ", " +
         quoted(formatted(format, arguments)) + ")");
    va_end(arguments);
}

WebDebug* WebDebug::getInstance() {
    static WebDebug instance;
    note("WebDebug::getInstance()");
    return &instance;
}
void WebDebug::info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    noteWebDebug("info", format, arguments);
    va_end(arguments);
}
void WebDebug::warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    noteWebDebug("warn", format, arguments);
    va_end(arguments);
}
void WebDebug::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    noteWebDebug("error", format, arguments);
    va_end(arguments);
}
void WebDebug::setUser(const char* user) {
    note("WebDebug::setUser(" + (user != nullptr ? quoted(user) : "null") + ")");
}

// The system. The linker puts all but times(2) in the place of the C library's functions.
extern "C" {
clock_t times(struct tms*) noexcept {
    note("times()");
    return kNow;
}

void* __wrap_dlopen(const char* path, int flags) {
    note("dlopen(" + quoted(path) + ", " + std::to_string(flags) + ")");
    return &library;
}
void* __wrap_dlsym(void* handle, const char* name) {
    note("dlsym(" + std::string(handle == &library ? "the library" : "a stranger") + ", " +
         quoted(name) + ")");
    const auto found = state.functions.find(name);
    state.loadingError = found == state.functions.end() ? "no such function" : nullptr;
    return found != state.functions.end() ? found->second : nullptr;
}
char* __wrap_dlerror() {
    note("dlerror()");
    const char* error = state.loadingError;
    state.loadingError = nullptr;
    return const_cast<char*>(error);
}
int __wrap_dlclose(void* handle) {
    note(std::string("dlclose(") + (handle == &library ? "the library" : "a stranger") + ")");
    return 0;
}

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    lockedLast = mutex;
    noteMutex("pthread_mutex_lock", mutex);
    return __real_pthread_mutex_lock(mutex);
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    noteMutex("pthread_mutex_unlock", mutex);
    return __real_pthread_mutex_unlock(mutex);
}
}
