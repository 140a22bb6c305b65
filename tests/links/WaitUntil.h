#pragma once
// The tests' WaitUntil (tests/support/Wait.h) under the name these tests use.

#include "support/Wait.h"

using testsupport::WaitUntil;
