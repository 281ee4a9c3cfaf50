// SPDX-License-Identifier: Apache-2.0
// Conversion of readings: every width code, the fused multiply-add, saturation, the result modulo
// 256; and a million random triples against integer arithmetic.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <bit>
#include <cmath>
#include <limits>

#include "support/numbers.h"

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

pldm_pdr sensor(uint8_t data_size, float resolution, float offset) {
    pldm_pdr pdr{};
    pdr.header.type = PLDM_PDR_TYPE_NUMERIC_SENSOR;
    pdr.numeric.sensor_data_size = data_size;
    pdr.numeric.resolution = test::wire_order(resolution);
    pdr.numeric.offset = test::wire_order(offset);
    return pdr;
}

int convert(uint8_t data_size, uint32_t reading, float resolution = 1, float offset = 0) {
    const pldm_pdr pdr = sensor(data_size, resolution, offset);
    return pldm_numeric_reading_conversion(reading, &pdr.numeric);
}

// ---- Width codes ----

TEST(Conversion, Uint8TakesTheLowByte) {
    EXPECT_EQ(convert(0, 0x12345678), 0x78);
    EXPECT_EQ(convert(0, 0xFF), 255);
    EXPECT_EQ(convert(0, 0xFFFFFF00), 0);
}

TEST(Conversion, Sint8IsNotSignExtended) {
    EXPECT_EQ(convert(1, 0xFF, 1.0F, 0.0F), 255);
    EXPECT_EQ(convert(1, 0x80), 128);
    EXPECT_EQ(convert(1, 0xFFFFFF81), 129);
}

TEST(Conversion, Uint16TakesTheLowWordWithoutSign) {
    EXPECT_EQ(convert(2, 0xFFFF1234, 1.0F / 256), 0x12);
    EXPECT_EQ(convert(2, 0xFFFE, 0.5F, 10), (0xFFFE / 2 + 10) % 256);
    EXPECT_EQ(convert(2, 0x8000, 1.0F / 256), 0x80);
}

TEST(Conversion, Sint16IsSignExtended) {
    EXPECT_EQ(convert(3, 0xFFFE, 0.5F, 10.0F), 9);
    EXPECT_EQ(convert(3, 0x12340005, 2, 1), 11);
    EXPECT_EQ(convert(3, 0x8000, 1, 32768 + 7), 7);
    EXPECT_EQ(convert(3, 0xFFFF), 0);
}

TEST(Conversion, Uint32TakesAllBitsWithoutSign) {
    EXPECT_EQ(convert(4, 0xFF000000, 1.0F / 0x1000000), 255);
    EXPECT_EQ(convert(4, 0x80000000, 1.0F / 0x1000000), 128);
}

TEST(Conversion, Sint32TakesAllBitsWithSign) {
    EXPECT_EQ(convert(5, 0xFFFFFFFE, -3), 6);
    EXPECT_EQ(convert(5, 0xFFFFFFFE, 3, 10), 4);
    EXPECT_EQ(convert(5, 0x7F000000, 1.0F / 0x1000000), 127);
    EXPECT_EQ(convert(5, 0xFF000000, 1.0F / 0x1000000), 0);
}

TEST(Conversion, ReadingsAreRoundedToSinglePrecisionFirst) {
    // 2^24 + 1 has no single precision number; halfway cases go to the even one.
    EXPECT_EQ(convert(4, 0x01000001, 1, -16777216), 0);
    EXPECT_EQ(convert(4, 0x01000003, 1, -16777216), 4);
    EXPECT_EQ(convert(5, 0xFEFFFFFF, -1, -16777216), 0);
    EXPECT_EQ(convert(5, 0xFEFFFFFD, -1, -16777216), 4);
}

TEST(Conversion, Real32AndUnknownWidthsAreNotUsable) {
    for (unsigned code = 6; code <= 255; code++) {
        EXPECT_EQ(convert(static_cast<uint8_t>(code), 5), 255) << code;
    }
}

TEST(Conversion, ANullRecordIsNotUsable) {
    EXPECT_EQ(pldm_numeric_reading_conversion(5, nullptr), 255);
}

// ---- The result ----

TEST(Conversion, NegativeValuesSaturateAtZero) {
    EXPECT_EQ(convert(0, 2, 1.0F, -5.0F), 0);
    EXPECT_EQ(convert(0, 1, -0.5F), 0);
    EXPECT_EQ(convert(0, 255, -std::numeric_limits<float>::max()), 0);
    EXPECT_EQ(convert(0, 1, -0.0F, -0.0F), 0);
}

TEST(Conversion, FractionsAreCutOff) {
    EXPECT_EQ(convert(0, 1, 0.999F), 0);
    EXPECT_EQ(convert(0, 1, 1.999F), 1);
    EXPECT_EQ(convert(0, 199, 0.5F, 0.25F), 99);
}

TEST(Conversion, TheResultIsReducedModulo256) {
    EXPECT_EQ(convert(2, 300), 44);
    EXPECT_EQ(convert(0, 255, 1, 1), 0);
    EXPECT_EQ(convert(4, 0xFFFFFF00), 0);
    EXPECT_EQ(convert(0, 0, 1, 4294967040.0F), 0);  // 2^32 - 256, the largest below 2^32
}

TEST(Conversion, ValuesOfTwoToTheThirtyTwoAndAboveSaturate) {
    EXPECT_EQ(convert(0, 0, 1, 4294967296.0F), 255);
    EXPECT_EQ(convert(4, 0xFFFFFFFF), 255);  // rounds up to 2^32
    EXPECT_EQ(convert(0, 255, std::numeric_limits<float>::max()), 255);
    EXPECT_EQ(convert(0, 1, kInfinity), 255);
    EXPECT_EQ(convert(0, 1, 1, kInfinity), 255);
}

TEST(Conversion, NanAndNegativeInfinityGiveZero) {
    EXPECT_EQ(convert(0, 1, kNan), 0);
    EXPECT_EQ(convert(0, 1, 1, kNan), 0);
    EXPECT_EQ(convert(0, 0, kInfinity), 0);              // 0 x infinity
    EXPECT_EQ(convert(0, 1, kInfinity, -kInfinity), 0);  // infinity - infinity
    EXPECT_EQ(convert(0, 1, -kInfinity), 0);
    EXPECT_EQ(convert(0, 1, 1, -kInfinity), 0);
}

TEST(Conversion, ProductAndSumAreRoundedOnce) {
    // 4097 x 8388609 = 4097 x 2^23 + 4097; a product in single precision would lose the last 1.
    EXPECT_EQ(convert(2, 4097, 8388609.0F, -34368131072.0F), 1);
}

TEST(Conversion, ATinyOffsetDoesNotDisturbTheSum) {
    EXPECT_EQ(convert(0, 7, 1, std::numeric_limits<float>::denorm_min()), 7);
    EXPECT_EQ(convert(0, 7, 1, -std::numeric_limits<float>::denorm_min()), 7);  // rounds back up
    EXPECT_EQ(convert(0, 255, std::numeric_limits<float>::denorm_min(), 9), 9);
}

TEST(Conversion, UnitsAndRangeAreNotLookedAt) {
    pldm_pdr pdr = sensor(0, 2, 1);
    pdr.numeric.unit_modifier = -3;
    pdr.numeric.aux_unit_modifier = 2;
    pdr.numeric.is_linear = 0;
    pdr.numeric.max_readable = 1;
    EXPECT_EQ(pldm_numeric_reading_conversion(100, &pdr.numeric), 201);
}

// ---- pldm_reading_conversion ----

TEST(ReadingConversion, NumericSensorsAreConverted) {
    const pldm_pdr pdr = sensor(3, 0.5F, 10.0F);
    EXPECT_EQ(pldm_reading_conversion(0xFFFE, &pdr, 1), 9);
    EXPECT_EQ(pldm_reading_conversion(0xFFFE, &pdr, 255), 9);
}

TEST(ReadingConversion, WithoutConversionTheLowByteIsReturnedForEveryRecord) {
    for (unsigned type = 0; type <= 255; type++) {
        pldm_pdr pdr = sensor(7, 2, 3);
        pdr.header.type = static_cast<uint8_t>(type);
        EXPECT_EQ(pldm_reading_conversion(0x123456AB, &pdr, 0), 0xAB) << type;
    }
}

TEST(ReadingConversion, NumericEffectersAreNotUsable) {
    pldm_pdr pdr = sensor(0, 1, 0);
    pdr.header.type = PLDM_PDR_TYPE_NUMERIC_EFFECTER;
    EXPECT_EQ(pldm_reading_conversion(5, &pdr, 1), 255);
}

TEST(ReadingConversion, EveryOtherTypeGivesTheLowByte) {
    for (unsigned type = 0; type <= 255; type++) {
        if (type == 2 || type == 9) {
            continue;
        }
        pldm_pdr pdr = sensor(0, 2, 3);
        pdr.header.type = static_cast<uint8_t>(type);
        EXPECT_EQ(pldm_reading_conversion(0x1FE, &pdr, 1), 0xFE) << type;
    }
}

TEST(ReadingConversion, ANullRecordIsNotUsable) {
    EXPECT_EQ(pldm_reading_conversion(5, nullptr, 0), 255);
    EXPECT_EQ(pldm_reading_conversion(5, nullptr, 1), 255);
}

// ---- The reference: the same by integer arithmetic, after IEEE 754
// -------------------------------

enum class Kind { kFinite, kInfinite, kNan };

/// A number as sign, mantissa and exponent: mantissa x 2^exponent.
struct Number {
    Kind kind = Kind::kFinite;
    bool negative = false;
    uint64_t mantissa = 0;
    int exponent = 0;
};

/// Width of the mantissas that are added; three bits are left for carry, and there is no sign.
constexpr int kTop = 61;

Number unpack(float value) {
    const auto bits = std::bit_cast<uint32_t>(value);
    const int exponent = static_cast<int>(bits >> 23 & 0xFF);
    const uint32_t fraction = bits & 0x7FFFFF;
    const bool negative = bits >> 31 != 0;
    if (exponent == 0xFF) {
        return {fraction != 0 ? Kind::kNan : Kind::kInfinite, negative, 0, 0};
    }
    if (exponent == 0) {
        return {Kind::kFinite, negative, fraction, -149};
    }
    return {Kind::kFinite, negative, fraction | 0x800000, exponent - 150};
}

/// Rounds to 24 bits, halfway cases to the even one.
void round_to_single(Number& number) {
    const int excess = std::bit_width(number.mantissa) - 24;
    if (excess <= 0) {
        return;
    }
    const uint64_t half = uint64_t{1} << (excess - 1);
    const uint64_t rest = number.mantissa & (2 * half - 1);
    number.mantissa >>= excess;
    number.exponent += excess;
    if (rest > half || (rest == half && number.mantissa % 2 != 0)) {
        number.mantissa++;
    }
}

/// Puts the highest bit of the mantissa at kTop; zero stays.
void normalise(Number& number) {
    if (number.mantissa != 0) {
        const int shift = kTop + 1 - std::bit_width(number.mantissa);
        number.mantissa <<= shift;
        number.exponent -= shift;
    }
}

/// Makes the exponent larger; bits that fall out are remembered in the lowest one.
void raise_exponent(Number& number, int exponent) {
    const int shift = exponent - number.exponent;
    const bool lost =
        shift > kTop ? number.mantissa != 0 : (number.mantissa & ((uint64_t{1} << shift) - 1)) != 0;
    number.mantissa = (shift > kTop ? 0 : number.mantissa >> shift) | (lost ? 1 : 0);
    number.exponent = exponent;
}

Number add(Number a, Number b) {
    if (a.mantissa == 0) {
        return b;
    }
    if (b.mantissa == 0) {
        return a;
    }
    normalise(a);
    normalise(b);
    if (a.exponent < b.exponent) {
        std::swap(a, b);
    }
    raise_exponent(b, a.exponent);
    if (a.negative == b.negative) {
        a.mantissa += b.mantissa;
    } else if (a.mantissa >= b.mantissa) {
        a.mantissa -= b.mantissa;
    } else {
        a.mantissa = b.mantissa - a.mantissa;
        a.negative = b.negative;
    }
    return a;
}

/// Truncated and saturated to 32 bits, the low eight of them.
uint8_t low_byte(Number number) {
    if (number.negative || number.mantissa == 0) {
        return 0;
    }
    round_to_single(number);
    const int width = std::bit_width(number.mantissa) + number.exponent;
    if (width > 32) {
        return 0xFF;
    }
    if (width <= 0) {
        return 0;
    }
    const uint64_t value = number.exponent >= 0 ? number.mantissa << number.exponent
                                                : number.mantissa >> -number.exponent;
    return static_cast<uint8_t>(value);
}

/// The reading as the width code has it.
int64_t narrow(uint32_t reading, uint8_t data_size) {
    const int64_t word = reading % 0x10000;
    const int64_t all = reading;
    switch (data_size) {
        case 0:
        case 1:
            return reading % 0x100;
        case 2:
            return word;
        case 3:
            return word < 0x8000 ? word : word - 0x10000;
        case 4:
            return all;
        default:
            return all < 0x80000000 ? all : all - 0x100000000;
    }
}

uint8_t reference(uint8_t data_size, uint32_t raw_reading, float resolution, float offset) {
    const int64_t value = narrow(raw_reading, data_size);
    Number reading{Kind::kFinite, value < 0, static_cast<uint64_t>(value < 0 ? -value : value), 0};
    round_to_single(reading);
    const Number factor = unpack(resolution);
    const Number addend = unpack(offset);
    Number product{factor.kind, reading.negative != factor.negative,
                   reading.mantissa * factor.mantissa, reading.exponent + factor.exponent};
    if (factor.kind == Kind::kInfinite && value == 0) {
        product.kind = Kind::kNan;
    }
    if (product.kind == Kind::kNan || addend.kind == Kind::kNan) {
        return 0;
    }
    if (product.kind == Kind::kInfinite && addend.kind == Kind::kInfinite) {
        return product.negative || addend.negative ? 0 : 0xFF;
    }
    if (product.kind == Kind::kInfinite || addend.kind == Kind::kInfinite) {
        return (product.kind == Kind::kInfinite ? product : addend).negative ? 0 : 0xFF;
    }
    return low_byte(add(product, addend));
}

TEST(ConversionReference, KnowsWhatIsKnown) {
    EXPECT_EQ(reference(0, 100, 0.5F, 10), 60);
    EXPECT_EQ(reference(3, 0xFFFE, 0.5F, 10), 9);
    EXPECT_EQ(reference(1, 0xFF, 1, 0), 255);
    EXPECT_EQ(reference(0, 2, 1, -5), 0);
    EXPECT_EQ(reference(2, 300, 1, 0), 44);
    EXPECT_EQ(reference(2, 4097, 8388609.0F, -34368131072.0F), 1);
    EXPECT_EQ(reference(4, 0xFFFFFFFF, 1, 0), 255);
    EXPECT_EQ(reference(0, 1, kInfinity, -kInfinity), 0);
}

// ---- Random triples -----------------------------------------------------------------------------

/// Small and fast: the triples are many.
class Random {
public:
    explicit Random(uint64_t seed) : state_(seed) {}

    uint32_t bits() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return static_cast<uint32_t>(state_ >> 21);
    }

    /// Sign and mantissa at random, an exponent in this range.
    float number(int exponent_min, int exponent_max) {
        const auto range = static_cast<uint32_t>(exponent_max - exponent_min + 1);
        const auto exponent = static_cast<uint32_t>(exponent_min + 127) + bits() % range;
        return std::bit_cast<float>((bits() & 0x807FFFFF) | exponent << 23);
    }

    float special() {
        static constexpr uint32_t kSpecial[] = {
            0x00000000, 0x80000000, 0x7F800000, 0xFF800000,  // zeros and infinities
            0x7FC00000, 0x7F800001, 0xFFC12345,              // quiet and signalling NaN
            0x00000001, 0x80000001, 0x007FFFFF, 0x00800000,  // subnormal, smallest normal
            0x7F7FFFFF, 0xFF7FFFFF, 0x3F800000, 0xBF800000,  // largest, one
            0x4F800000, 0x4F7FFFFF, 0x4F000000, 0x437F0000,  // 2^32, the one below, 2^31, 255
        };
        return std::bit_cast<float>(kSpecial[bits() % std::size(kSpecial)]);
    }

private:
    uint64_t state_;
};

struct Triple {
    uint8_t data_size;
    uint32_t reading;
    float resolution;
    float offset;
};

Triple random_triple(Random& random, unsigned round) {
    const auto data_size = static_cast<uint8_t>(round % 6);
    const uint32_t reading = random.bits() >> random.bits() % 32;
    switch (round / 6 % 4) {
        case 0:  // any bits at all
            return {data_size, reading, std::bit_cast<float>(random.bits()),
                    std::bit_cast<float>(random.bits())};
        case 1: {
            const float resolution =
                random.bits() % 2 != 0 ? random.special() : random.number(-3, 3);
            return {data_size, reading, resolution, random.special()};
        }
        case 2:  // as sensors have them
            return {data_size, reading, random.number(-20, 8), random.number(-10, 30)};
        default: {  // product and offset cancel out nearly
            const float resolution = random.number(0, 24);
            const auto value = static_cast<double>(narrow(reading, data_size));
            const auto offset = static_cast<float>(-value * static_cast<double>(resolution));
            return {data_size, reading, resolution,
                    std::bit_cast<float>(std::bit_cast<uint32_t>(offset) + random.bits() % 3 - 1)};
        }
    }
}

/// What two roundings would give. Through memory, lest the compiler fuse them.
bool two_roundings_differ(const Triple& triple, uint8_t right) {
    const volatile float product =
        static_cast<float>(narrow(triple.reading, triple.data_size)) * triple.resolution;
    const float sum = product + triple.offset;
    const bool in_range = sum > 0 && sum < 4294967296.0F;
    const uint32_t whole = in_range ? static_cast<uint32_t>(sum) : sum > 0 ? UINT32_MAX : 0;
    return static_cast<uint8_t>(whole) != right;
}

TEST(ConversionRandom, MoreThanAMillionTriplesAgreeWithIntegerArithmetic) {
    constexpr unsigned kRounds = 1200000;
    Random random(0x9E3779B97F4A7C15);
    pldm_pdr pdr = sensor(0, 1, 0);
    unsigned wrong = 0;
    unsigned in_between = 0;
    unsigned fusing_matters = 0;
    for (unsigned round = 0; round < kRounds; round++) {
        const Triple triple = random_triple(random, round);
        pdr.numeric.sensor_data_size = triple.data_size;
        pdr.numeric.resolution = test::wire_order(triple.resolution);
        pdr.numeric.offset = test::wire_order(triple.offset);
        const uint8_t expected =
            reference(triple.data_size, triple.reading, triple.resolution, triple.offset);
        const uint8_t got = pldm_numeric_reading_conversion(triple.reading, &pdr.numeric);
        if (got != expected && ++wrong <= 10) {
            ADD_FAILURE() << "code " << int{triple.data_size} << std::hex << " reading 0x"
                          << triple.reading << " resolution 0x"
                          << std::bit_cast<uint32_t>(triple.resolution) << " offset 0x"
                          << std::bit_cast<uint32_t>(triple.offset) << ": 0x" << int{got}
                          << ", not 0x" << int{expected};
        }
        in_between += expected != 0 && expected != 0xFF ? 1 : 0;
        fusing_matters += two_roundings_differ(triple, expected) ? 1 : 0;
    }
    EXPECT_EQ(wrong, 0u);
    // The triples are such that the test can tell right from wrong.
    EXPECT_GT(in_between, kRounds / 8);
    EXPECT_GT(fusing_matters, kRounds / 100);
}

}  // namespace
