#include "platform/interruption.h"

#include <atomic>

#include "system.h"

namespace quillfence::platform {

namespace {

std::atomic<bool> noted;
HANDLE wakening; // an event that is set once a wish has come; null while nobody listens

// The first wish is ours; for a second one the system does what it does without us.
BOOL WINAPI on_wish(DWORD) {
    const bool first = !noted.exchange(true);
    SetEvent(wakening);
    return first;
}

// Whether there is something to read, be it the end, or the system can't tell beforehand.
bool is_readable(HANDLE pipe) {
    DWORD waiting = 0;
    return !PeekNamedPipe(pipe, nullptr, 0, nullptr, &waiting, nullptr) || waiting > 0;
}

void wait_for_pipe(HANDLE pipe) {
    constexpr DWORD interval = 10; // milliseconds
    while (!noted && !is_readable(pipe)) {
        WaitForSingleObject(wakening, interval);
    }
}

void wait_for_bytes(HANDLE from) {
    switch (GetFileType(from)) {
    case FILE_TYPE_PIPE:
        wait_for_pipe(from);
        return;
    case FILE_TYPE_CHAR: {
        const HANDLE both[] = {wakening, from};
        WaitForMultipleObjects(2, both, FALSE, INFINITE);
        return;
    }
    default:
        return;
    }
}

} // namespace

uint32_t interruption_listen() {
    noted = false;
    if (!wakening) {
        wakening = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    }
    ResetEvent(wakening);
    return error_unless(wakening && SetConsoleCtrlHandler(on_wish, TRUE));
}

void interruption_ignore() {
    SetConsoleCtrlHandler(on_wish, FALSE);
    noted = false;
}

bool interruption_noted() {
    return noted;
}

void interruption_note() {
    noted = true;
    SetEvent(wakening);
}

uint32_t file_read_unless_interrupted(file_handle file, void *buffer, uint32_t size,
                                      uint32_t *moved) {
    *moved = 0;
    wait_for_bytes(reinterpret_cast<HANDLE>(file));
    if (noted) {
        return error_operation_aborted;
    }
    return file_read(file, buffer, size, moved);
}

} // namespace quillfence::platform
