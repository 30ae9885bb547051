#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/hostlink/HostLinkFrame.h"

/// What each side tells the other before messages flow: who it is, whom it knows, how far it got.
struct HostLinkHello {
    static constexpr std::uint8_t kVersion = 1;
    static constexpr std::size_t kSize = 38;
    static constexpr std::uint8_t kSettled = 0x01; ///< flag: `settled`

    bool settled = false;          ///< this side needs no answer to begin
    std::uint64_t instance = 0;    ///< drawn by each start, never 0
    std::uint64_t peer = 0;        ///< instance that this side knows on the other, 0 for none
    std::uint32_t received = 0;    ///< sequenced frames received in the session with that instance
    std::uint32_t credit[2] = {};  ///< bytes granted at the beginning of a session, by MessageClass
    std::uint32_t largest[2] = {}; ///< longest message that this side can hold, by MessageClass

    using Payload = std::array<std::uint8_t, kSize>;
    Payload payload() const;

    /// The version of any hello, 0 for a payload without one.
    static std::uint8_t version(const HostLinkFrame& frame);

    /// Reads a hello of this version; longer ones may carry more behind it. False for anything else.
    bool read(const HostLinkFrame& frame);
};
