/**
 * @file bare_exchange.h
 * @brief The exchange of an operation without the library: a prepared record and its ioctl.
 */
#ifndef BARE_EXCHANGE_H
#define BARE_EXCHANGE_H

#include <sys/ioctl.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "testing/transfer_records.h"

/** Device numbers of the constant driver: models in turn. */
constexpr int kK40Device = 0;
constexpr int kK44Device = 1;
constexpr int kK50Device = 2;

class BareExchange {
public:
    BareExchange(int deviceNo, unsigned char command, std::vector<unsigned char> payload)
        : isK40_(deviceNo % 3 == kK40Device), payload_(std::move(payload)) {
        k40_ = {1, 1, static_cast<std::uint32_t>(payload_.size()) + 1, 64, {}};
        k40_.data[0] = command;
        std::copy(payload_.begin(), payload_.end(), k40_.data + 1);
        k44_ = {&status_, 0, 0, payload_.data(), payload_.size(), reply_, &replyLength_, command};
    }
    BareExchange(const BareExchange&) = delete;
    BareExchange& operator=(const BareExchange&) = delete;

    // The descriptor does not matter to the constant driver.
    int Run() { return isK40_ ? ioctl(0, kK40Request, &k40_) : ioctl(0, kK44Request, &k44_); }

private:
    bool isK40_;
    std::vector<unsigned char> payload_;
    std::int32_t status_ = 0;
    unsigned char reply_[256] = {};
    std::uint64_t replyLength_ = 0;
    K40Record k40_ = {};
    K44Record k44_ = {};
};

#endif  // BARE_EXCHANGE_H
