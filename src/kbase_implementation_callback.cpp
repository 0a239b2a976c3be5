/**
 * @file kbase_implementation_callback.cpp
 * @brief The thread that polls for changed inputs and calls the application.
 *
 * The configuration is written only while no thread runs; while one runs, both sides touch only
 * the two flags. The thread holds no reference: it is stopped before the object is destroyed.
 */
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "forks.h"
#include "kbase_implementation.h"
#include "signals_blocked.h"

namespace {

constexpr useconds_t kPollPeriodUs = 5000;
constexpr useconds_t kStopPollUs = 20000;
constexpr useconds_t kThreadEndPollUs = 100;
constexpr int kMostThreadEndLooks = 10000;  // a second
constexpr char kThreadName[] = "marvane-inputs";
static_assert(sizeof kThreadName <= 16, "the kernel keeps 15 characters");

void UnblockFaults() {
    sigset_t faults;
    sigemptyset(&faults);
    for (const int fault : kFaultSignals)
        sigaddset(&faults, fault);
    pthread_sigmask(SIG_UNBLOCK, &faults, nullptr);
}

/** Starts a thread that nobody joins; yields its handle, or 0. */
pthread_t StartDetached(void* (*run)(void*), void* argument) {
    const SignalsBlocked signals;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return 0;
    pthread_t thread = 0;
    const bool started = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                         pthread_create(&thread, &attributes, run, argument) == 0;
    pthread_attr_destroy(&attributes);
    return started ? thread : 0;
}

bool AnySet(const usbInput& inputs) {
    return std::any_of(std::begin(inputs.bytes), std::end(inputs.bytes),
                       [](unsigned char byte) { return byte != 0; });
}

}  // namespace

int KBaseImplementation::ConfigureChangedInputsCallback(usbInput* mask, usbInput* selection,
                                                        void (*callback)(usbInput* changed,
                                                                         usbInput* current)) {
    if (callback == nullptr && callbackThread == 0) return Fail(USB_ERR_NULL_POINTER);
    if (callbackThread != 0) {
        StopCallbackThread();
        changedInputsCallback = nullptr;
        callbackThread = 0;
        if (callback == nullptr) return 1;
    }
    if (selection == nullptr || mask == nullptr) return Fail(USB_ERR_NULL_POINTER);
    usbInput ignored;
    if (!GetInputs(&ignored)) return 0;

    changedInputsCallback = callback;
    changedInputsMask = *mask;
    changedInputsLevel = *selection;
    changedInputs = {};
    return StartCallbackThread();
}

int KBaseImplementation::StartCallbackThread() {
    const int runBefore = callbackThreadRun;
    const int stoppedBefore = callbackThreadStopped;
    // Before the thread exists, so that it cannot undo a stop that comes at once.
    callbackThreadStopped = 0;
    callbackThreadRun = 1;
    callbackThreadForks = Forks::Count();
    callbackThread = StartDetached(InputsCallbackThread, this);
    if (callbackThread != 0) return 1;

    callbackThreadRun = runBefore;
    callbackThreadStopped = stoppedBefore;
    return Fail(USB_ERR_THREAD_START);
}

void KBaseImplementation::StopCallbackThread() {
    // In a forked child the thread never was.
    if (callbackThreadForks != Forks::Count()) return;
    const bool endedBefore = callbackThreadStopped != 0;
    callbackThreadRun = 0;
    while (callbackThreadStopped == 0)
        usleep(kStopPollUs);
    // The thread still has to leave the library, which may be unloaded next, however long it gets
    // no processor. Of one that ended long ago another thread may have the number by now.
    int looks = 0;
    while (tgkill(getpid(), callbackThreadId, 0) == 0) {
        if (endedBefore && ++looks > kMostThreadEndLooks) return;
        usleep(kThreadEndPollUs);
    }
}

void* KBaseImplementation::InputsCallbackThread(void* impl) noexcept {
    auto* board = static_cast<KBaseImplementation*>(impl);
    UnblockFaults();  // whatever the caller of the start blocks
    pthread_setname_np(pthread_self(), kThreadName);
    board->callbackThreadId = gettid();
    board->changedInputs = {};
    bool works = false;
    do {
        works = board->PollChangedInputs();
        // A callback that forks returns in the child, too, where the thread has no business.
    } while (works && board->callbackThreadRun == 1 &&
             board->callbackThreadForks == Forks::Count());
    if (!works) board->callbackThreadError = GetLastError();
    board->callbackThreadStopped = 1;
    return nullptr;
}

KBaseImplementation::CallbackState KBaseImplementation::StateOfCallback() const {
    // The thread of a forked child's parent is no thread here.
    if (callbackThreadRun != 1 || callbackThreadForks != Forks::Count()) {
        return CallbackState::kNone;
    }
    return callbackThreadStopped == 0 ? CallbackState::kRunning : CallbackState::kFailed;
}

int KBaseImplementation::GetChangedInputsCallbackState(unsigned int* state) {
    if (state == nullptr) return Fail(USB_ERR_NULL_POINTER);
    *state = static_cast<unsigned int>(StateOfCallback());
    return 1;
}

int KBaseImplementation::GetChangedInputsCallbackError(int* code) {
    if (code == nullptr) return Fail(USB_ERR_NULL_POINTER);
    *code = StateOfCallback() == CallbackState::kFailed ? callbackThreadError.load() : 0;
    return 1;
}

bool KBaseImplementation::PollChangedInputs() {
    usbInput report;
    if (!GetChangedInputs(&report)) return false;
    for (unsigned i = 0; i < sizeof report.bytes; ++i) {
        changedInputs.bytes[i] = changedInputsMask.bytes[i] & report.bytes[i];
    }
    if (!AnySet(changedInputs)) {
        usleep(kPollPeriodUs);
        return true;
    }

    usbInput image;
    if (!GetInputs(&image)) return false;
    qualifyInputSelection(this, image.bytes);
    if (AnySet(changedInputs)) changedInputsCallback(&changedInputs, &currentInputs);
    return true;
}

void KBaseImplementation::qualifyInputSelection(KBaseImplementation* impl, unsigned char* inputs) {
    for (unsigned i = 0; i < sizeof impl->currentInputs.bytes; ++i) {
        impl->currentInputs.bytes[i] = inputs[i];
        const auto wrongLevel =
            static_cast<unsigned char>(impl->changedInputsLevel.bytes[i] ^ inputs[i]);
        impl->changedInputs.bytes[i] &= static_cast<unsigned char>(~wrongLevel);
    }
}
