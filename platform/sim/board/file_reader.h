// SPDX-License-Identifier: Apache-2.0
// The reader of board files, by the names under which the simulated board uses it.
#ifndef SIDEBAND_SIM_BOARD_FILE_READER_H
#define SIDEBAND_SIM_BOARD_FILE_READER_H

#include "platform/board_file/json_tree.h"

namespace sim {

using board_file::attempt;
using board_file::FileError;
using board_file::Node;
using board_file::ObjectReader;
using board_file::Place;

}  // namespace sim

#endif
