// SPDX-License-Identifier: Apache-2.0
// A hostile device: what it says may be changed in any way, the same way for the same seed.
#include "sim/device/hostile.h"
#include "sim/device/message.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

constexpr uint32_t kForEver = UINT32_MAX;
constexpr size_t kMostHabits = 8;
constexpr size_t kMostSaid = 8;
constexpr size_t kLongestBody = 8192;
constexpr size_t kCheckSize = 4;
constexpr uint8_t kIntegrityCheck = 0x80;
/// One check in so many stays as wrong as the change has left it.
constexpr uint32_t kWrongChecks = 16;

bool has_check(const Message& message) {
    return (message.type & kIntegrityCheck) != 0 && message.body.size() >= kCheckSize;
}

void append_check(Message& message) {
    Bytes covered{message.type};
    append(covered, message.body);
    append_le32(message.body, crc32c(covered));
}

/// Whether a message is an answer with a completion code, which is success.
bool succeeds(const MessageKey& key, const Bytes& body) {
    const size_t header = header_size(key);
    return key.type <= kPldmType && !key.request && body.size() > header && body[header - 1] == 0;
}

/// Puts the data of an earlier answer behind the header of another: an honest device refuses to be
/// asked for what it has not announced.
void say_again(const Bytes& earlier, Bytes& body) {
    constexpr size_t kInstance = 1;
    const Bytes start(body.begin(), body.begin() + std::min(body.size(), kInstance));
    body = earlier;
    std::ranges::copy(start, body.begin());
}

/// Removes or repeats some bytes in the middle.
void edit_range(Bytes& body, bool remove, uint32_t where, uint32_t what) {
    const size_t from = where % body.size();
    const size_t size = std::min<size_t>(1 + what % 8, body.size() - from);
    const auto begin = body.begin() + static_cast<std::ptrdiff_t>(from);
    const auto end = begin + static_cast<std::ptrdiff_t>(size);
    if (remove) {
        body.erase(begin, end);
        return;
    }
    const Bytes range(begin, end);
    body.insert(end, range.begin(), range.end());
}

}  // namespace

Hostile::Hostile(uint64_t seed, uint32_t rate)
    : seed_(seed), rate_(rate), state_(seed * 0x9E3779B97F4A7C15u + 0x1234567) {}

/// splitmix64: the same everywhere, which the distributions of the standard library are not.
uint64_t Hostile::next() {
    uint64_t z = state_ += 0x9E3779B97F4A7C15u;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
    z = (z ^ z >> 27) * 0x94D049BB133111EBu;
    return z ^ z >> 31;
}

/// A value at which decoders go wrong: around nothing, the largest, what was there and what fits.
uint32_t Hostile::interesting(uint32_t what, size_t size, uint32_t old) const {
    const auto length = static_cast<uint32_t>(size);
    const uint32_t values[] = {
        0,          1,          2,       0x7F,       0x80,       0xFF,       0xFE,        0x7FFF,
        0x8000,     0xFFFF,     0xFFFE,  0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFFFE,  length,
        length - 1, length + 1, old - 1, old + 1,    old * 2,    old / 2,    old ^ 0x80,  what >> 8,
        what >> 16, what >> 24, ~old,    length / 2, 3,          4,          0x00010000u, 54};
    return values[what % std::size(values)];
}

Hostile::Action Hostile::choose(const MessageKey& key) {
    // How often each is chosen, in the order of Change.
    static constexpr std::array<uint8_t, kChanges> kWeights = {6, 6, 16, 8, 8, 4, 2, 2,
                                                               4, 3, 2,  2, 3, 2, 1, 1};
    static constexpr uint32_t kAll = 70;
    uint32_t left = below(kAll);
    size_t chosen = 0;
    while (left >= kWeights[chosen]) {
        left -= kWeights[chosen++];
    }
    auto change = static_cast<Change>(chosen);
    const bool unknown = fields_of(key).empty();
    if (unknown && (change == Change::kField || change == Change::kGoOn)) {
        change = Change::kByte;
    }
    const auto where = static_cast<uint32_t>(next());
    return {change, where, static_cast<uint32_t>(next())};
}

void Hostile::change_field(const MessageKey& key, const Action& action, Bytes& body) const {
    const std::span<const Field> fields = fields_of(key);
    if (fields.empty()) {
        return;
    }
    const bool all = action.where % 4 != 0;
    size_t end = 0;
    for (const Field& field : fields) {
        // Handles that change are what an honest list of parts would have.
        if (action.change == Change::kGoOn && field.goes_on && (all || action.what % 2 == 0)) {
            const uint32_t step = action.what % 3 == 0 ? get_field(body, field) + 1 : 0;
            put_field(body, field, step != 0 && field.width == 4 ? step : *field.goes_on);
            end = size_t{field.at} + field.width;
        }
    }
    // Parts that bring nothing have no end either.
    if (end != 0 && action.where % 5 == 0) {
        body.resize(std::min(body.size(), end));
    }
    if (action.change == Change::kField) {
        const Field& field = fields[action.where % fields.size()];
        put_field(body, field, interesting(action.what, body.size(), get_field(body, field)));
    }
}

/// Changes that know nothing of what the bytes mean.
void Hostile::change_bytes(const MessageKey& key, const Action& action, Bytes& body) {
    const size_t header = std::min(header_size(key), body.size() - 1);
    const size_t content = body.size() - header;
    // Most are behind the header, near which the lengths and counts of unknown messages stand.
    const size_t spread = action.what % 2 == 0 ? std::min<size_t>(content, 12) : content;
    const size_t at = header + action.where % spread;
    switch (action.change) {
        case Change::kFlip:
            body[at] ^= static_cast<uint8_t>(1u << (action.what >> 8) % 8);
            break;
        case Change::kByte:
            body[at] = static_cast<uint8_t>(interesting(action.what >> 1, content, body[at]));
            break;
        case Change::kCut:
            body.resize(action.what % 2 == 0 ? at : body.size() - 1 - action.where % content);
            break;
        case Change::kTake:
        case Change::kRepeat:
            edit_range(body, action.change == Change::kTake, action.where, action.what);
            break;
        case Change::kCode:
            body[header - (header > 0 ? 1 : 0)] = static_cast<uint8_t>(action.what >> 8);
            break;
        case Change::kHeader:
            body[action.where % std::max<size_t>(header, 1)] ^=
                static_cast<uint8_t>(1u << action.what % 8);
            break;
        case Change::kNoise:
            body.resize(header + action.where % (2 * content));
            std::generate(body.begin() + static_cast<std::ptrdiff_t>(header), body.end(),
                          [this] { return static_cast<uint8_t>(next()); });
            break;
        default:
            break;
    }
}

/// Changes the body of a message and, mostly, makes its checks right again.
void Hostile::change_body(const Action& action, Message& message) {
    Bytes& body = message.body;
    const bool checked = has_check(message);
    Bytes check;
    if (checked) {
        check.assign(body.end() - kCheckSize, body.end());
        body.resize(body.size() - kCheckSize);
    }
    const MessageKey key = key_of(message);
    if (!action.instead.empty()) {
        say_again(action.instead, body);
    }
    if (action.change == Change::kField || action.change == Change::kGoOn) {
        change_field(key, action, body);
    } else if (action.change == Change::kExtend || body.empty()) {
        const uint32_t size = action.where % 8 == 0 ? 4200 : action.where % 3 == 0 ? 300 : 16;
        const size_t most = std::max(kLongestBody, body.size());
        body.resize(std::min(body.size() + 1 + action.what % size, most),
                    static_cast<uint8_t>(action.what >> 16));
    } else {
        change_bytes(key, action, body);
    }
    if (!one_of(kWrongChecks)) {
        mend_checksum(key, body);
    }
    if (!checked) {
        return;
    }
    if (one_of(kWrongChecks)) {
        append(body, check);
    } else {
        append_check(message);
    }
}

/// Does to the last of the messages what an action says.
void Hostile::apply(const Action& action, std::vector<Message>& messages) {
    if (messages.empty()) {
        return;
    }
    Message& last = messages.back();
    switch (action.change) {
        case Change::kSilence:
            messages.clear();
            break;
        case Change::kTwice:
            messages.push_back(Message(last));
            break;
        case Change::kOld: {
            const Message& old = said_[action.where % said_.size()];
            last.type = old.type;
            last.body = old.body;
            break;
        }
        case Change::kRequest: {
            Message own = said_[action.where % said_.size()];
            own.tag_owner = true;
            own.tag = action.what % 8;
            messages.insert(messages.end() - 1, std::move(own));
            break;
        }
        case Change::kLater:
            delay_ns_ = uint64_t{action.what % 3000} * 1'000'000;
            break;
        default:
            change_body(action, last);
    }
}

/// What the habits have for a message, and what comes to mind now.
std::vector<Hostile::Action> Hostile::actions_for(const MessageKey& key, const Bytes& body) {
    std::vector<Action> actions;
    for (Habit& habit : habits_) {
        if (habit.key == key && habit.left != 0) {
            actions.push_back(habit.action);
            habit.left -= habit.left == kForEver ? 0 : 1;
        }
    }
    std::erase_if(habits_, [](const Habit& habit) { return habit.left == 0; });
    if (below(kMostRate) >= rate_) {
        return actions;
    }
    do {
        const Action action = choose(key);
        actions.push_back(action);
        const uint32_t habitual = action.change == Change::kGoOn ? 2 : 8;
        if (habits_.size() < kMostHabits && one_of(habitual)) {
            habits_.push_back({key, action, one_of(2) ? kForEver : 1 + below(64)});
            if (action.change == Change::kGoOn && succeeds(key, body)) {
                habits_.back().action.instead = body;
            }
        }
    } while (one_of(3));
    return actions;
}

void Hostile::remember(const Message& message) {
    if (said_.size() < kMostSaid) {
        said_.push_back(message);
    } else {
        said_[below(kMostSaid)] = message;
    }
}

std::vector<Message> Hostile::spoil(const Message& message) {
    delay_ns_ = 0;
    remember(message);
    std::vector<Message> messages{message};
    const std::vector<Action> actions = actions_for(key_of(message), message.body);
    for (const Action& action : actions) {
        apply(action, messages);
    }
    spoilt_ += actions.empty() ? 0 : 1;
    packets_too_ = !actions.empty() && one_of(4);
    return messages;
}

/// Changes one packet: header, size or PEC.
void Hostile::spoil_packet(Outgoing& packet) {
    Bytes& bytes = packet.packet;
    if (bytes.size() < MctpEndpoint::kHeaderSize) {
        return;
    }
    constexpr size_t kFlags = 3;
    switch (below(8)) {
        case 0:
        case 1:
        case 2:
            bytes[kFlags] ^= static_cast<uint8_t>(1u << below(8));
            break;
        case 3:
            bytes[below(kFlags)] ^= static_cast<uint8_t>(1u << below(8));
            break;
        case 4:
            bytes.resize(below(static_cast<uint32_t>(bytes.size())));
            break;
        case 5:
            bytes.resize(bytes.size() + 1 + below(200), 0xEE);
            break;
        case 6:
            packet.spoil_pec = true;
            break;
        default:
            packet.delay_ns += uint64_t{below(2000)} * 1'000'000;
    }
}

void Hostile::spoil(std::vector<Outgoing>& packets) {
    for (Outgoing& packet : packets) {
        packet.delay_ns += delay_ns_;
    }
    if (!std::exchange(packets_too_, false) || packets.empty()) {
        return;
    }
    if (one_of(40)) {
        babble_ = packets;
        babble_left_ = one_of(4) ? kForEver : 1 + below(64);
        static constexpr uint64_t kPeriodsNs[] = {100'000, 2'000'000, 30'000'000, 400'000'000};
        babble_ns_ = kPeriodsNs[below(4)];
    }
    do {
        const size_t at = below(static_cast<uint32_t>(packets.size()));
        const auto place = packets.begin() + static_cast<std::ptrdiff_t>(at);
        switch (below(6)) {
            case 0:
                packets.erase(place);
                break;
            case 1:
                packets.insert(place, Outgoing(*place));
                break;
            case 2:
                std::swap(*place, packets.back());
                break;
            default:
                spoil_packet(*place);
        }
    } while (!packets.empty() && one_of(3));
}

std::vector<Outgoing> Hostile::babble() {
    if (babble_left_ == 0 || babble_.empty()) {
        return {};
    }
    babble_left_ -= babble_left_ == kForEver ? 0 : 1;
    std::vector<Outgoing> again{babble_[below(static_cast<uint32_t>(babble_.size()))]};
    again.back().delay_ns = babble_ns_;
    constexpr uint8_t kStartAndEnd = 0xC0;
    constexpr size_t kFlags = 3;
    // Mostly in the middle of a message that has no end.
    if (again.back().packet.size() > kFlags && !one_of(8)) {
        again.back().packet[kFlags] &= static_cast<uint8_t>(~kStartAndEnd);
    }
    return again;
}

}  // namespace sim
