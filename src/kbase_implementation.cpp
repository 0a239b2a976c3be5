/**
 * @file kbase_implementation.cpp
 * @brief Life of an open board, and the answers of a board that is no model in particular.
 */
#include "kbase_implementation.h"

#include <unistd.h>

#include "kbase_shared_implementation.h"

constinit thread_local int KBaseImplementation::error_no = USB_ERR_NONE;

KBaseImplementation::KBaseImplementation(MarvaneUSB* facade, int handle, char* /*name*/, int speed,
                                         int number)
    : hiCodeLoaded(false),
      boardSpeed(speed),
      owner(facade),
      changedInputsCallback(nullptr),
      changedInputsMask{},
      changedInputsLevel{},
      changedInputs{},
      currentInputs{},
      callbackThread(0),
      callbackThreadRun(0),
      callbackThreadStopped(0),
      deviceNo(number),
      referenceCount(1),
      pulsedInputConfigured{},
      reelConfigured{},
      serialPortConfigured{},
      deviceHandle(handle),
      keptByte{kNothingKept, kNothingKept} {}

KBaseImplementation::~KBaseImplementation() {
    if (callbackThread != 0) StopCallbackThread();
    if (deviceHandle > 0) close(deviceHandle);
}

void KBaseImplementation::incrementReferenceCount() {
    ++referenceCount;
}

void KBaseImplementation::decrementReferenceCount() {
    if (--referenceCount > 0) return;
    // While the object is still whole: in the destructors it loses its model step by step, and the
    // thread, and operations in its callback, would find the base's transport.
    if (callbackThread != 0) StopCallbackThread();
    callbackThread = 0;
    delete this;
}

int KBaseImplementation::Fail(_usbErrorCode code) {
    return Fail({.kind = Failure::Kind::kCode, .code = code});
}

int KBaseImplementation::Fail(const Failure& failure) {
    error_no = failure.code;
    LastFailure::Note(failure);
    return 0;
}

int KBaseImplementation::FailWithout(const SharedObject& missing) {
    return Fail({.kind = Failure::Kind::kNoSharedState,
                 .code = USB_ERR_NOT_CONFIGURED,
                 .missing = missing.WhyAbsent()});
}

int KBaseImplementation::FailWithoutBoard() {
    LastFailure::Note({.kind = Failure::Kind::kNoBoard});
    return 0;
}

int KBaseImplementation::FailExchange(Failure::Kind kind, int code, unsigned char command,
                                      int channel, int systemError) const {
    return Fail({.kind = kind,
                 .command = command,
                 .code = code,
                 .channel = channel,
                 .deviceNo = deviceNo,
                 .systemError = systemError});
}

int KBaseImplementation::PerformUSBIO(unsigned char /*command*/, int /*channel*/,
                                      unsigned char* /*in*/, unsigned long /*inLen*/,
                                      unsigned char* /*out*/, unsigned long* /*outLen*/) {
    return 0;
}

int KBaseImplementation::GetBoardType(unsigned char* type) {
    return AnswerBoardType(BoardType::kUnknown, type);
}

int KBaseImplementation::GetBoardSpeed(unsigned char* speed) {
    if (speed == nullptr) return Fail(USB_ERR_NULL_POINTER);
    *speed = static_cast<unsigned char>(boardSpeed);
    return 1;
}

int KBaseImplementation::DownloadHiCode() {
    return 0;
}

int KBaseImplementation::WriteSRAM(unsigned long /*address*/, unsigned char* /*data*/,
                                   unsigned int /*length*/) {
    return 0;
}

int KBaseImplementation::ReadSRAM(unsigned long /*address*/, unsigned char* /*data*/,
                                  unsigned long /*length*/) {
    return 0;
}

int KBaseImplementation::ReadClockAtBatteryFailure(unsigned long* /*time*/) {
    return 0;
}
