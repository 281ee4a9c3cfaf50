// SPDX-License-Identifier: Apache-2.0
// A hostile device: what it says may be changed in any way, the same way for the same seed.
#ifndef SIDEBAND_SIM_DEVICE_HOSTILE_H
#define SIDEBAND_SIM_DEVICE_HOSTILE_H

#include <array>
#include <cstdint>
#include <vector>

#include "sim/device/hostile_fields.h"
#include "sim/mctp/endpoint.h"

namespace sim {

/// A packet that a device wants to send.
struct Outgoing {
    Bytes packet;           ///< from the MCTP transport header on
    uint64_t delay_ns = 0;  ///< from now
    bool spoil_pec = false;
};

/// Changes messages before they are split, and packets afterwards. Most changes leave the checks
/// right that a receiver looks at first, so that the changed content gets as far as it can.
class Hostile {
public:
    static constexpr uint32_t kMostRate = 1000;
    static constexpr uint32_t kUsualRate = 500;

    /// @param rate  how many messages of a thousand are changed
    Hostile(uint64_t seed, uint32_t rate);

    bool is(uint64_t seed, uint32_t rate) const { return seed == seed_ && rate == rate_; }

    /// The messages that go out in the place of one; none if it falls silent.
    std::vector<Message> spoil(const Message& message);
    /// Likewise the packets of one of them.
    void spoil(std::vector<Outgoing>& packets);

    /// What it says though nobody has asked, each time that somebody listens.
    std::vector<Outgoing> babble();

    /// Messages that were changed or held back so far.
    uint64_t spoilt() const { return spoilt_; }

private:
    /// What can become of a message.
    enum class Change : uint8_t {
        kFlip,     ///< a bit
        kByte,     ///< a byte, to a value at which decoders go wrong
        kField,    ///< a length, count or handle, likewise
        kGoOn,     ///< what says whether there is more: there is
        kCut,      ///< its end is missing
        kExtend,   ///< it has bytes behind its end
        kTake,     ///< bytes in its middle are missing
        kRepeat,   ///< bytes of its middle stand there twice
        kCode,     ///< another completion code, response code or status
        kHeader,   ///< it belongs to something else
        kNoise,    ///< nothing of its content is left
        kOld,      ///< an earlier message in its place
        kSilence,  ///< nothing
        kTwice,    ///< it comes twice
        kRequest,  ///< a request of the device's own comes first
        kLater,    ///< it comes late
    };
    static constexpr size_t kChanges = 16;

    /// A change with all that is random about it.
    struct Action {
        Change change = Change::kFlip;
        uint32_t where = 0;
        uint32_t what = 0;
        Bytes instead = {};  ///< of a habit that goes on: what it says whatever it is asked
    };
    /// A change that every message of a key meets.
    struct Habit {
        MessageKey key;
        Action action;
        uint32_t left = 0;  ///< so many more messages; kForEver
    };

    uint64_t next();
    /// @return 0 to end - 1
    uint32_t below(uint32_t end) { return static_cast<uint32_t>(next() % end); }
    bool one_of(uint32_t times) { return below(times) == 0; }

    Action choose(const MessageKey& key);
    uint32_t interesting(uint32_t what, size_t size, uint32_t old) const;
    void change_field(const MessageKey& key, const Action& action, Bytes& body) const;
    void change_bytes(const MessageKey& key, const Action& action, Bytes& body);
    void change_body(const Action& action, Message& message);
    void apply(const Action& action, std::vector<Message>& messages);
    std::vector<Action> actions_for(const MessageKey& key, const Bytes& body);
    void remember(const Message& message);
    void spoil_packet(Outgoing& packet);

    uint64_t seed_;
    uint32_t rate_;
    uint64_t state_;
    uint64_t spoilt_ = 0;
    uint64_t delay_ns_ = 0;  ///< of the message that is being split
    bool packets_too_ = false;
    std::vector<Habit> habits_;
    std::vector<Message> said_;  ///< the last messages, as they were meant
    std::vector<Outgoing> babble_;
    uint32_t babble_left_ = 0;
    uint64_t babble_ns_ = 0;  ///< between two of its packets
};

}  // namespace sim

#endif
