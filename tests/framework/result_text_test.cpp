// Every result code the library answers has a text of its own; codes it
// never answers share the text for an unknown code.
#include <gtest/gtest.h>

#include <HdwLib/HdwLib.h>

#include <set>
#include <string>

namespace {

TEST(ResultText, EveryResultCodeHasItsOwnTextAndOthersAreUnknown)
{
    const unsigned codes[] = {HDW_OK, HDW_ERR_SERVICE_CHANGE_ON_OPEN_PORT, HDW_ERR_ARGUMENT, HDW_ERR_NOTHING_TO_READ,
        HDW_ERR_ALREADY_ATTACHED, HDW_ERR_NOT_SUPPORTED, HDW_ERR_WRONG_STATE, HDW_ERR_MALFORMED_EVENT,
        HDW_ERR_SYSTEM_CALL, HDW_ERR_LINK, HDW_ERR_SERVICE, HDW_ERR_PORT_ALREADY_OPEN, HDW_ERR_PORT_NOT_OPEN,
        HDW_ERR_NO_LOCAL_PORT, HDW_ERR_PROBE_INCOMPLETE, HDW_ERR_WRITE_TIMEOUT, HDW_ERR_SERVICE_ALREADY_ENABLED,
        HDW_ERR_SERVICE_NOT_RUNNING, HDW_ERR_RESOURCES, HDW_ERR_NO_ACK, HDW_ERR_BUS_FAULT};
    const std::string unknown = CKVX_HdwObject::GetResultText(3);
    std::set<std::string> seen;
    for (unsigned code : codes) {
        const char* text = CKVX_HdwObject::GetResultText(code);
        ASSERT_NE(text, nullptr) << code;
        EXPECT_NE(text, unknown) << "result " << code << " has no text";
        EXPECT_TRUE(seen.insert(text).second) << "result " << code << " shares its text: " << text;
    }
    for (unsigned code : {3u, 5u, 35u, 0xFFFFFFFFu})
        EXPECT_EQ(CKVX_HdwObject::GetResultText(code), unknown) << code;
}

} // namespace
