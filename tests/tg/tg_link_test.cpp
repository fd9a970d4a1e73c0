// The tracking-generator link with no generator attached: the SLIP frames,
// the levelling runs of the ALC buffers, the EEPROM user area's place, and
// what every call gives without a bridge.
#include <gtest/gtest.h>

#include <vector>

#include "qs_sim.h"
#include "tg/ft_bridge.h"
#include "tg/tg_interface.h"

namespace {

using qs::TGInterface;

std::vector<unsigned char> Frame(std::vector<unsigned char> payload) {
    std::vector<unsigned char> frame(2 * payload.size() + 1);
    frame.resize(size_t(qs::slip_encode(payload.data(), int(payload.size()), frame.data())));
    return frame;
}

TEST(TgLink, FramesEscapeEndAndEscapeBytes) {
    using V = std::vector<unsigned char>;
    // 'F' with the word 0x0000C0DB.
    EXPECT_EQ(Frame({0x46, 0xDB, 0xC0, 0x00, 0x00}), (V{0x46, 0xDB, 0xDD, 0xDB, 0xDC, 0x00, 0x00, 0xC0}));
    EXPECT_EQ(Frame({}), V{0xC0});
    EXPECT_EQ(Frame({0x41, 0x19}), (V{0x41, 0x19, 0xC0}));
    // The longest payload with every byte escaped fills the whole room.
    EXPECT_EQ(Frame(V(16, 0xC0)).size(), 33u);
    EXPECT_EQ(Frame({0xDC, 0xDD}), (V{0xDC, 0xDD, 0xC0}));
}

TEST(TgLink, UncalibratedLevellingUsesTheEstimate) {
    TGInterface tg;
    EXPECT_EQ(tg.GetBestAttenSetting(1e9, -30.0, -1), 25);
    EXPECT_EQ(tg.GetBestAttenSetting(1e9, -10.0, -1), 5);
    EXPECT_EQ(tg.GetBestAttenSetting(3e9, -12.5, 4), 7);  // truncated toward zero
}

TEST(TgLink, AlcBuffersHoldRunsOfEqualAttenuation) {
    TGInterface tg;
    struct Case {
        int buffer;
        double ampl;
        int points;
        int code;
    } cases[] = {{0, -30.0, 208, 25}, {1, -10.0, 208, 5}, {0, -20.0, 1, 15}, {1, -30.0, 1024, 25}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.points);
        EXPECT_EQ(tg.LoadALC(c.buffer, c.ampl, 1e9, 1e4, c.points), 0);
        // One run; its count is one more than the points it covers.
        ASSERT_EQ(tg.ALCEntryCount(c.buffer), 1);
        EXPECT_EQ(tg.ALCAtten(c.buffer, 0), c.code);
        EXPECT_EQ(tg.ALCCount(c.buffer, 0), c.points + 1);
    }
    // The buffers are independent.
    tg.LoadALC(0, -30.0, 1e9, 1e4, 8);
    tg.LoadALC(1, -10.0, 1e9, 1e4, 16);
    EXPECT_EQ(tg.ALCAtten(0, 0), 25);
    EXPECT_EQ(tg.ALCCount(1, 0), 17);
}

TEST(TgLink, WithoutABridgeNothingIsSentAndTheCallsSayNotFound) {
    qssim_reset();  // the simulated bus has no FTDI bridge on it
    TGInterface tg;
    EXPECT_FALSE(tg.IsConnected());
    EXPECT_FALSE(tg.Connect());
    EXPECT_FALSE(tg.IsConnected());
    EXPECT_TRUE(tg.Disconnect());
    double f = 7.0, a = 7.0;
    EXPECT_EQ(tg.SetTgFreqAmpl(1e9, -20.0), qsTrackingGeneratorNotFound);
    EXPECT_EQ(tg.GetTgFreqAmpl(&f, &a), qsTrackingGeneratorNotFound);
    EXPECT_EQ(f, 7.0);
    EXPECT_EQ(a, 7.0);
    for (int ref : {0, 1, 2, 3}) EXPECT_EQ(tg.SetRef(ref), qsTrackingGeneratorNotFound);
    EXPECT_EQ(tg.SendSLIP(0, 1000), qs::FT_INVALID_HANDLE);
    EXPECT_EQ(tg.TGSweep(1e9, 1e4, 208), qs::FT_INVALID_HANDLE);
    tg.LoadALC(0, -30.0, 1e9, 1e4, 8);
    EXPECT_EQ(tg.WriteALC(0), qs::FT_INVALID_HANDLE);
}

TEST(TgLink, TheBridgeListOfTheSimulatedBusIsEmpty) {
    qssim_reset();
    qssim_add_device(QSSIM_PID_MAPLE_REV2, 12345678);  // an analyser is no bridge
    qs::DWORD count = 99;
    EXPECT_EQ(qs::FT_CreateDeviceInfoList(&count), qs::FT_OK);
    EXPECT_EQ(count, 0u);
    char serial[16], description[64];
    EXPECT_EQ(qs::FT_GetDeviceInfoDetail(0, nullptr, nullptr, nullptr, nullptr, serial, description, nullptr),
              qs::FT_DEVICE_NOT_FOUND);
    qs::FT_HANDLE handle = nullptr;
    EXPECT_EQ(qs::FT_Open(0, &handle), qs::FT_DEVICE_NOT_FOUND);
    EXPECT_EQ(handle, qs::ft_no_bridge());
    qs::DWORD n = 5;
    unsigned char byte = 0;
    EXPECT_EQ(qs::FT_Write(handle, &byte, 1, &n), qs::FT_INVALID_HANDLE);
    EXPECT_EQ(n, 0u);
    EXPECT_EQ(qs::FT_Close(handle), qs::FT_INVALID_HANDLE);
    // USB that cannot start lists nothing either.
    qssim_set_init_failure(1);
    count = 99;
    EXPECT_NE(qs::FT_CreateDeviceInfoList(&count), qs::FT_OK);
    EXPECT_EQ(count, 0u);
    qssim_set_init_failure(0);
    qssim_reset();
}

TEST(TgLink, TheUserAreaFollowsTheStringDescriptors) {
    struct Case {
        int size;
        unsigned char ptrs[6];  // offset | 0x80 and length of the three strings
        int start;
    } cases[] = {
        {128, {0x98, 0x0E, 0xA6, 0x1C, 0xC2, 0x12}, 0x54},  // 24 + 14 + 28 + 18
        {128, {0x9A, 0x04, 0xD0, 0x10, 0xA0, 0x08}, 0x60},  // the last string ends latest
        {256, {0x9A, 0x04, 0x9E, 0x04, 0xA2, 0x04}, 0xA6},  // a 93C56 part: no folding
        {128, {0, 0, 0, 0, 0, 0}, 0x18},                    // no strings
    };
    for (const Case& c : cases) {
        std::vector<unsigned char> image(size_t(c.size), 0xFF);
        for (int i = 0; i < 6; ++i) image[size_t(0x0E + i)] = c.ptrs[i];
        EXPECT_EQ(qs::ft_user_area_start(image.data(), c.size), c.start);
    }
}

}  // namespace
