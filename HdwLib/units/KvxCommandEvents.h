#pragma once
// Event objects of the command-protocol units (nested in
// CKVX_HdwKvxCommandDevice): one class per event type, each decoding its
// record in ExtractData. Included by KvxCommandDevice.h.
