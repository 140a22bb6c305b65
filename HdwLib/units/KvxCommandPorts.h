#pragma once
// Ports and services of the command-protocol units (nested in
// CKVX_HdwKvxCommandDevice): thin subclasses of the generic bus classes that
// turn their operations into unit commands and take the unit's events.
// Included by KvxCommandDevice.h.
