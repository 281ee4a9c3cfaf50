// SPDX-License-Identifier: Apache-2.0
// Add-in cards on the board, and how far an update of them has got.
#ifndef SIDEBAND_TESTS_SWEEP_CARDS_H
#define SIDEBAND_TESTS_SWEEP_CARDS_H

#include <string>

#include "world.h"

namespace sweep {

/// Where a card is, as keys of its device.
inline const std::string kOnSmbus =
    R"("bus": 2, "address": "0x64", "eid": 9, "mux": {"address": "0xe0", "channel": 1},
       "card": {"bdf": "81:00.0", "vendor_id": "0x15b3", "flags": "0x10000"})";
inline const std::string kOnPcie = R"("transport": "pcie", "bdf": "81:00.0", "eid": 9,
                               "card": {"vendor_id": "0x15b3", "flags": "0x20000"})";
inline const std::string kGraphics = R"("bus": 2, "address": "0x66", "eid": 9,
    "card": {"bdf": "81:00.0", "vendor_id": "0x8086", "flags": "0x800000"})";

/// Writes a package for the cards, of one component. Its path is in update.package_file.
void provide(World& world, bool with_data);
/// Opens a board with a card; card and endpoint are filled, and nothing is bound.
void open_card(World& world, const std::string& place);
/// Binds the context endpoint to the update.
void bind_endpoint(World& world);

// A card that is bound, and a package that is not parsed; the last one fetches package data and has
// metadata.
void ready_on_smbus(World& world);
void ready_on_pcie(World& world);
void ready_talkative(World& world);
// ... and what the commands of an update need of both.
void ready_loaded(World& world);
void ready_talkative_loaded(World& world);
/// A card that has all its components, as far as it is concerned.
void ready_to_activate(World& world);

// By messages of the scenario's own: the card is in no update, learns components, knows the
// component, loads it.
void leave_update(World& world);
void begin_update(World& world);
void pass_component(World& world);
void offer_component(World& world);

/// What the last call has left of failures and progress.
void forget_failures(World& world);
void free_context(World& world);
void free_all(World& world);

}  // namespace sweep

#endif
