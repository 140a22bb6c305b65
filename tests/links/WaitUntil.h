#pragma once
#include "support/Wait.h"

using testsupport::WaitUntil;
