// SPDX-License-Identifier: Apache-2.0
// GoogleTest and its main(), built with the flags of the tests, whatever machine they are for.
#include "src/gtest_main.cc"
#include "src/gtest-all.cc"
