#include "PixelFormat.h"

#include <strings.h>

namespace ZTI {
namespace {

using P = PixelPacking;

// Every fact the library holds about a pixel format, one row per code in the order of the
// format list (a test holds the two in step). Columns:
//   bpp      bits one pixel occupies, as the code's bits 23..16 say
//   bpc      significant bits of one channel (the 5-6-5 formats give the whole pixel, 16)
//   ch       channels of the matrix over the image; layouts the library does not read give
//            their colour components (4:1:1 gives 3, 4:2:2 families 2)
//   cont     bits one sample occupies: 8 or 16 when unpacked, the sample depth when packed,
//            0 for layouts the library does not read
//   packing  how the samples lie in memory
//   pattern  colour-filter pattern of the top-left 2 x 2 cell; codes known only by number
//            have none even when they are mosaics
//   unpacked what attachGrabResult makes of a frame: the code itself when it views the frame
//            as it is, the 16-bit format when it unpacks it, 0 when it cannot hold it. The
//            Bayer 10p codes are viewed as they are; every other packed 10- and 12-bit
//            code is unpacked.
//   colour   holds colour: every format whose top byte is not 0x01, and the mosaics
// clang-format off
constexpr PixelFormatInfo kFormats[] = {
    // name                      code         bpp bpc ch cont packing         pattern  unpacked                  colour
    {"Mono1p",                   0x01010037u,   1,  1, 1,  1, P::LsbFirst,    nullptr, 0,                        false},
    {"Mono2p",                   0x01020038u,   2,  2, 1,  2, P::LsbFirst,    nullptr, 0,                        false},
    {"Mono4p",                   0x01040039u,   4,  4, 1,  4, P::LsbFirst,    nullptr, 0,                        false},
    {nullptr,                    0x0104010Du,   4,  4, 1,  0, P::Other,       nullptr, 0x0104010Du,              true},
    {nullptr,                    0x0104010Eu,   4,  4, 1,  0, P::Other,       nullptr, 0x0104010Eu,              true},
    {nullptr,                    0x0104010Fu,   4,  4, 1,  0, P::Other,       nullptr, 0x0104010Fu,              true},
    {nullptr,                    0x01040110u,   4,  4, 1,  0, P::Other,       nullptr, 0x01040110u,              true},
    {"Mono8",                    0x01080001u,   8,  8, 1,  8, P::None,        nullptr, Mono8,                    false},
    {"Mono8s",                   0x01080002u,   8,  8, 1,  8, P::None,        nullptr, Mono8s,                   false},
    {"BayerGR8",                 0x01080008u,   8,  8, 1,  8, P::None,        "GRBG",  BayerGR8,                 true},
    {"BayerRG8",                 0x01080009u,   8,  8, 1,  8, P::None,        "RGGB",  BayerRG8,                 true},
    {"BayerGB8",                 0x0108000Au,   8,  8, 1,  8, P::None,        "GBRG",  BayerGB8,                 true},
    {"BayerBG8",                 0x0108000Bu,   8,  8, 1,  8, P::None,        "BGGR",  BayerBG8,                 true},
    {nullptr,                    0x010800C9u,   8,  8, 1,  0, P::Other,       nullptr, 0x010800C9u,              false},
    {nullptr,                    0x010800CDu,   8,  8, 1,  0, P::Other,       nullptr, 0x010800CDu,              false},
    {nullptr,                    0x010800D1u,   8,  8, 1,  0, P::Other,       nullptr, 0x010800D1u,              false},
    {"YUV411_8_UYYVYY",          0x020C001Eu,  12,  8, 3,  0, P::Other,       nullptr, YUV411_8_UYYVYY,          true},
    {"YCbCr411_8_CbYYCrYY",      0x020C003Cu,  12,  8, 3,  0, P::Other,       nullptr, YCbCr411_8_CbYYCrYY,      true},
    {"YCbCr601_411_8_CbYYCrYY",  0x020C003Fu,  12,  8, 3,  0, P::Other,       nullptr, YCbCr601_411_8_CbYYCrYY,  true},
    {"YCbCr709_411_8_CbYYCrYY",  0x020C0042u,  12,  8, 3,  0, P::Other,       nullptr, YCbCr709_411_8_CbYYCrYY,  true},
    {nullptr,                    0x020C005Au,  12,  8, 3,  0, P::Other,       nullptr, 0x020C005Au,              true},
    {nullptr,                    0x020C00F9u,  12,  8, 3,  0, P::Other,       nullptr, 0x020C00F9u,              true},
    {nullptr,                    0x020C0112u,  12,  8, 3,  0, P::Other,       nullptr, 0x020C0112u,              true},
    {nullptr,                    0x020C0114u,  12,  8, 3,  0, P::Other,       nullptr, 0x020C0114u,              true},
    {"YUV422_8_UYVY",            0x0210001Fu,  16,  8, 2,  8, P::None,        nullptr, YUV422_8_UYVY,            true},
    {"YUV422_8",                 0x02100032u,  16,  8, 2,  8, P::None,        nullptr, YUV422_8,                 true},
    {"YCbCr422_8",               0x0210003Bu,  16,  8, 2,  8, P::None,        nullptr, YCbCr422_8,               true},
    {"YCbCr601_422_8",           0x0210003Eu,  16,  8, 2,  8, P::None,        nullptr, YCbCr601_422_8,           true},
    {"YCbCr709_422_8",           0x02100041u,  16,  8, 2,  8, P::None,        nullptr, YCbCr709_422_8,           true},
    {"YCbCr422_8_CbYCrY",        0x02100043u,  16,  8, 2,  8, P::None,        nullptr, YCbCr422_8_CbYCrY,        true},
    {"YCbCr601_422_8_CbYCrY",    0x02100044u,  16,  8, 2,  8, P::None,        nullptr, YCbCr601_422_8_CbYCrY,    true},
    {"YCbCr709_422_8_CbYCrY",    0x02100045u,  16,  8, 2,  8, P::None,        nullptr, YCbCr709_422_8_CbYCrY,    true},
    {nullptr,                    0x021000FAu,  16,  8, 2,  0, P::Other,       nullptr, 0x021000FAu,              true},
    {nullptr,                    0x021000FBu,  16,  8, 2,  0, P::Other,       nullptr, 0x021000FBu,              true},
    {nullptr,                    0x02100113u,  16,  8, 2,  0, P::Other,       nullptr, 0x02100113u,              true},
    {nullptr,                    0x02100115u,  16,  8, 2,  0, P::Other,       nullptr, 0x02100115u,              true},
    {"RGB8",                     0x02180014u,  24,  8, 3,  8, P::None,        nullptr, RGB8,                     true},
    {"BGR8",                     0x02180015u,  24,  8, 3,  8, P::None,        nullptr, BGR8,                     true},
    {"YUV8_UYV",                 0x02180020u,  24,  8, 3,  8, P::None,        nullptr, YUV8_UYV,                 true},
    {"RGB8_Planar",              0x02180021u,  24,  8, 3,  0, P::Other,       nullptr, RGB8_Planar,              true},
    {"YCbCr8_CbYCr",             0x0218003Au,  24,  8, 3,  8, P::None,        nullptr, YCbCr8_CbYCr,             true},
    {"YCbCr601_8_CbYCr",         0x0218003Du,  24,  8, 3,  8, P::None,        nullptr, YCbCr601_8_CbYCr,         true},
    {"YCbCr709_8_CbYCr",         0x02180040u,  24,  8, 3,  8, P::None,        nullptr, YCbCr709_8_CbYCr,         true},
    {"YCbCr8",                   0x0218005Bu,  24,  8, 3,  8, P::None,        nullptr, YCbCr8,                   true},
    {nullptr,                    0x021800F4u,  24,  8, 3,  0, P::Other,       nullptr, 0x021800F4u,              true},
    {"RGBa8",                    0x02200016u,  32,  8, 4,  8, P::None,        nullptr, RGBa8,                    true},
    {"BGRa8",                    0x02200017u,  32,  8, 4,  8, P::None,        nullptr, BGRa8,                    true},
    {"Mono10p",                  0x010A0046u,  10, 10, 1, 10, P::LsbFirst,    nullptr, Mono10,                   false},
    {"BayerBG10p",               0x010A0052u,  10, 10, 1, 10, P::LsbFirst,    "BGGR",  BayerBG10p,               true},
    {"BayerGB10p",               0x010A0054u,  10, 10, 1, 10, P::LsbFirst,    "GBRG",  BayerGB10p,               true},
    {"BayerGR10p",               0x010A0056u,  10, 10, 1, 10, P::LsbFirst,    "GRBG",  BayerGR10p,               true},
    {"BayerRG10p",               0x010A0058u,  10, 10, 1, 10, P::LsbFirst,    "RGGB",  BayerRG10p,               true},
    {"Mono10Packed",             0x010C0004u,  12, 10, 1, 10, P::PackedPairs, nullptr, Mono10,                   false},
    {"BayerGR10Packed",          0x010C0026u,  12, 10, 1, 10, P::PackedPairs, "GRBG",  BayerGR10,                true},
    {"BayerRG10Packed",          0x010C0027u,  12, 10, 1, 10, P::PackedPairs, "RGGB",  BayerRG10,                true},
    {"BayerGB10Packed",          0x010C0028u,  12, 10, 1, 10, P::PackedPairs, "GBRG",  BayerGB10,                true},
    {"BayerBG10Packed",          0x010C0029u,  12, 10, 1, 10, P::PackedPairs, "BGGR",  BayerBG10,                true},
    {"Mono10",                   0x01100003u,  16, 10, 1, 16, P::None,        nullptr, Mono10,                   false},
    {"BayerGR10",                0x0110000Cu,  16, 10, 1, 16, P::None,        "GRBG",  BayerGR10,                true},
    {"BayerRG10",                0x0110000Du,  16, 10, 1, 16, P::None,        "RGGB",  BayerRG10,                true},
    {"BayerGB10",                0x0110000Eu,  16, 10, 1, 16, P::None,        "GBRG",  BayerGB10,                true},
    {"BayerBG10",                0x0110000Fu,  16, 10, 1, 16, P::None,        "BGGR",  BayerBG10,                true},
    {nullptr,                    0x01100120u,  16, 10, 1,  0, P::Other,       nullptr, 0x01100120u,              false},
    {nullptr,                    0x01100122u,  16, 10, 1,  0, P::Other,       nullptr, 0x01100122u,              false},
    {nullptr,                    0x01100124u,  16, 10, 1,  0, P::Other,       nullptr, 0x01100124u,              false},
    {nullptr,                    0x02140087u,  20, 10, 2,  0, P::Other,       nullptr, 0,                        true},
    {nullptr,                    0x0214008Eu,  20, 10, 2,  0, P::Other,       nullptr, 0x0214008Eu,              true},
    {nullptr,                    0x02140096u,  20, 10, 2,  0, P::Other,       nullptr, 0x02140096u,              true},
    {nullptr,                    0x0214009Au,  20, 10, 2,  0, P::Other,       nullptr, 0x0214009Au,              true},
    {nullptr,                    0x0214009Eu,  20, 10, 2,  0, P::Other,       nullptr, 0x0214009Eu,              true},
    {nullptr,                    0x021400A2u,  20, 10, 2,  0, P::Other,       nullptr, 0x021400A2u,              true},
    {nullptr,                    0x021400FEu,  20, 10, 2,  0, P::Other,       nullptr, 0x021400FEu,              true},
    {nullptr,                    0x021400FFu,  20, 10, 2,  0, P::Other,       nullptr, 0x021400FFu,              true},
    {"BGR10p",                   0x021E0048u,  30, 10, 3, 10, P::LsbFirst,    nullptr, BGR10p,                   true},
    {"RGB10p",                   0x021E005Cu,  30, 10, 3, 10, P::LsbFirst,    nullptr, RGB10p,                   true},
    {nullptr,                    0x021E0084u,  30, 10, 3,  0, P::Other,       nullptr, 0,                        true},
    {nullptr,                    0x021E008Au,  30, 10, 3,  0, P::Other,       nullptr, 0x021E008Au,              true},
    {nullptr,                    0x021E0092u,  30, 10, 3,  0, P::Other,       nullptr, 0x021E0092u,              true},
    {nullptr,                    0x021E00F6u,  30, 10, 3,  0, P::Other,       nullptr, 0x021E00F6u,              true},
    {"RGB10V1Packed",            0x0220001Cu,  32, 10, 3,  0, P::Other,       nullptr, 0,                        true},
    {"RGB10p32",                 0x0220001Du,  32, 10, 3,  0, P::Other,       nullptr, RGB10p32,                 true},
    {nullptr,                    0x02200065u,  32, 10, 2,  0, P::Other,       nullptr, 0x02200065u,              true},
    {nullptr,                    0x0220008Du,  32, 10, 2,  0, P::Other,       nullptr, 0x0220008Du,              true},
    {nullptr,                    0x02200095u,  32, 10, 2,  0, P::Other,       nullptr, 0x02200095u,              true},
    {nullptr,                    0x02200099u,  32, 10, 2,  0, P::Other,       nullptr, 0x02200099u,              true},
    {nullptr,                    0x0220009Du,  32, 10, 2,  0, P::Other,       nullptr, 0x0220009Du,              true},
    {nullptr,                    0x022000A1u,  32, 10, 2,  0, P::Other,       nullptr, 0x022000A1u,              true},
    {nullptr,                    0x022000FCu,  32, 10, 2,  0, P::Other,       nullptr, 0x022000FCu,              true},
    {nullptr,                    0x022000FDu,  32, 10, 2,  0, P::Other,       nullptr, 0x022000FDu,              true},
    {"BGRa10p",                  0x0228004Du,  40, 10, 4, 10, P::LsbFirst,    nullptr, BGRa10p,                  true},
    {"RGBa10p",                  0x02280060u,  40, 10, 4, 10, P::LsbFirst,    nullptr, RGBa10p,                  true},
    {"RGB10",                    0x02300018u,  48, 10, 3, 16, P::None,        nullptr, RGB10,                    true},
    {"BGR10",                    0x02300019u,  48, 10, 3, 16, P::None,        nullptr, BGR10,                    true},
    {"RGB10_Planar",             0x02300022u,  48, 10, 3,  0, P::Other,       nullptr, RGB10_Planar,             true},
    {nullptr,                    0x02300083u,  48, 10, 3,  0, P::Other,       nullptr, 0x02300083u,              true},
    {nullptr,                    0x02300089u,  48, 10, 3,  0, P::Other,       nullptr, 0x02300089u,              true},
    {nullptr,                    0x02300091u,  48, 10, 3,  0, P::Other,       nullptr, 0x02300091u,              true},
    {nullptr,                    0x023000F5u,  48, 10, 3,  0, P::Other,       nullptr, 0x023000F5u,              true},
    {"BGRa10",                   0x0240004Cu,  64, 10, 4, 16, P::None,        nullptr, BGRa10,                   true},
    {"RGBa10",                   0x0240005Fu,  64, 10, 4, 16, P::None,        nullptr, RGBa10,                   true},
    {"Mono12Packed",             0x010C0006u,  12, 12, 1, 12, P::PackedPairs, nullptr, Mono12,                   false},
    {"BayerGR12Packed",          0x010C002Au,  12, 12, 1, 12, P::PackedPairs, "GRBG",  BayerGR12,                true},
    {"BayerRG12Packed",          0x010C002Bu,  12, 12, 1, 12, P::PackedPairs, "RGGB",  BayerRG12,                true},
    {"BayerGB12Packed",          0x010C002Cu,  12, 12, 1, 12, P::PackedPairs, "GBRG",  BayerGB12,                true},
    {"BayerBG12Packed",          0x010C002Du,  12, 12, 1, 12, P::PackedPairs, "BGGR",  BayerBG12,                true},
    {"Mono12p",                  0x010C0047u,  12, 12, 1, 12, P::LsbFirst,    nullptr, Mono12,                   false},
    {"BayerBG12p",               0x010C0053u,  12, 12, 1, 12, P::LsbFirst,    "BGGR",  BayerBG12,                true},
    {"BayerGB12p",               0x010C0055u,  12, 12, 1, 12, P::LsbFirst,    "GBRG",  BayerGB12,                true},
    {"BayerGR12p",               0x010C0057u,  12, 12, 1, 12, P::LsbFirst,    "GRBG",  BayerGR12,                true},
    {"BayerRG12p",               0x010C0059u,  12, 12, 1, 12, P::LsbFirst,    "RGGB",  BayerRG12,                true},
    {"Mono12",                   0x01100005u,  16, 12, 1, 16, P::None,        nullptr, Mono12,                   false},
    {"BayerGR12",                0x01100010u,  16, 12, 1, 16, P::None,        "GRBG",  BayerGR12,                true},
    {"BayerRG12",                0x01100011u,  16, 12, 1, 16, P::None,        "RGGB",  BayerRG12,                true},
    {"BayerGB12",                0x01100012u,  16, 12, 1, 16, P::None,        "GBRG",  BayerGB12,                true},
    {"BayerBG12",                0x01100013u,  16, 12, 1, 16, P::None,        "BGGR",  BayerBG12,                true},
    {nullptr,                    0x01100121u,  16, 12, 1,  0, P::Other,       nullptr, 0x01100121u,              false},
    {nullptr,                    0x01100123u,  16, 12, 1,  0, P::Other,       nullptr, 0x01100123u,              false},
    {nullptr,                    0x01100125u,  16, 12, 1,  0, P::Other,       nullptr, 0x01100125u,              false},
    {nullptr,                    0x02180088u,  24, 12, 2,  0, P::Other,       nullptr, 0,                        true},
    {nullptr,                    0x02180090u,  24, 12, 2,  0, P::Other,       nullptr, 0x02180090u,              true},
    {nullptr,                    0x02180098u,  24, 12, 2,  0, P::Other,       nullptr, 0x02180098u,              true},
    {nullptr,                    0x0218009Cu,  24, 12, 2,  0, P::Other,       nullptr, 0x0218009Cu,              true},
    {nullptr,                    0x021800A0u,  24, 12, 2,  0, P::Other,       nullptr, 0x021800A0u,              true},
    {nullptr,                    0x021800A4u,  24, 12, 2,  0, P::Other,       nullptr, 0x021800A4u,              true},
    {nullptr,                    0x02180102u,  24, 12, 2,  0, P::Other,       nullptr, 0x02180102u,              true},
    {nullptr,                    0x02180103u,  24, 12, 2,  0, P::Other,       nullptr, 0x02180103u,              true},
    {nullptr,                    0x02200066u,  32, 12, 2,  0, P::Other,       nullptr, 0x02200066u,              true},
    {nullptr,                    0x0220008Fu,  32, 12, 2,  0, P::Other,       nullptr, 0x0220008Fu,              true},
    {nullptr,                    0x02200097u,  32, 12, 2,  0, P::Other,       nullptr, 0x02200097u,              true},
    {nullptr,                    0x0220009Bu,  32, 12, 2,  0, P::Other,       nullptr, 0x0220009Bu,              true},
    {nullptr,                    0x0220009Fu,  32, 12, 2,  0, P::Other,       nullptr, 0x0220009Fu,              true},
    {nullptr,                    0x022000A3u,  32, 12, 2,  0, P::Other,       nullptr, 0x022000A3u,              true},
    {nullptr,                    0x02200100u,  32, 12, 2,  0, P::Other,       nullptr, 0x02200100u,              true},
    {nullptr,                    0x02200101u,  32, 12, 2,  0, P::Other,       nullptr, 0x02200101u,              true},
    {"RGB12V1Packed",            0x02240034u,  36, 12, 3,  0, P::Other,       nullptr, 0,                        true},
    {"BGR12p",                   0x02240049u,  36, 12, 3, 12, P::LsbFirst,    nullptr, BGR12p,                   true},
    {"RGB12p",                   0x0224005Du,  36, 12, 3, 12, P::LsbFirst,    nullptr, RGB12p,                   true},
    {nullptr,                    0x02240086u,  36, 12, 3,  0, P::Other,       nullptr, 0,                        true},
    {nullptr,                    0x0224008Cu,  36, 12, 3,  0, P::Other,       nullptr, 0x0224008Cu,              true},
    {nullptr,                    0x02240094u,  36, 12, 3,  0, P::Other,       nullptr, 0x02240094u,              true},
    {nullptr,                    0x022400F8u,  36, 12, 3,  0, P::Other,       nullptr, 0x022400F8u,              true},
    {"RGB12",                    0x0230001Au,  48, 12, 3, 16, P::None,        nullptr, RGB12,                    true},
    {"BGR12",                    0x0230001Bu,  48, 12, 3, 16, P::None,        nullptr, BGR12,                    true},
    {"RGB12_Planar",             0x02300023u,  48, 12, 3,  0, P::Other,       nullptr, RGB12_Planar,             true},
    {nullptr,                    0x0230004Fu,  48, 12, 3,  0, P::Other,       nullptr, 0x0230004Fu,              true},
    {nullptr,                    0x02300062u,  48, 12, 3,  0, P::Other,       nullptr, 0x02300062u,              true},
    {nullptr,                    0x02300085u,  48, 12, 3,  0, P::Other,       nullptr, 0x02300085u,              true},
    {nullptr,                    0x0230008Bu,  48, 12, 3,  0, P::Other,       nullptr, 0x0230008Bu,              true},
    {nullptr,                    0x02300093u,  48, 12, 3,  0, P::Other,       nullptr, 0x02300093u,              true},
    {nullptr,                    0x023000F7u,  48, 12, 3,  0, P::Other,       nullptr, 0x023000F7u,              true},
    {"BGRa12",                   0x0240004Eu,  64, 12, 4, 16, P::None,        nullptr, BGRa12,                   true},
    {"RGBa12",                   0x02400061u,  64, 12, 4, 16, P::None,        nullptr, RGBa12,                   true},
    {nullptr,                    0x010E0104u,  14, 14, 1,  0, P::Other,       nullptr, 0x010E0104u,              false},
    {nullptr,                    0x010E0105u,  14, 14, 1,  0, P::Other,       nullptr, 0x010E0105u,              true},
    {nullptr,                    0x010E0106u,  14, 14, 1,  0, P::Other,       nullptr, 0x010E0106u,              true},
    {nullptr,                    0x010E0107u,  14, 14, 1,  0, P::Other,       nullptr, 0x010E0107u,              true},
    {nullptr,                    0x010E0108u,  14, 14, 1,  0, P::Other,       nullptr, 0x010E0108u,              true},
    {"Mono14",                   0x01100025u,  16, 14, 1, 16, P::None,        nullptr, Mono14,                   false},
    {nullptr,                    0x01100109u,  16, 14, 1,  0, P::Other,       nullptr, 0x01100109u,              true},
    {nullptr,                    0x0110010Au,  16, 14, 1,  0, P::Other,       nullptr, 0x0110010Au,              true},
    {nullptr,                    0x0110010Bu,  16, 14, 1,  0, P::Other,       nullptr, 0x0110010Bu,              true},
    {nullptr,                    0x0110010Cu,  16, 14, 1,  0, P::Other,       nullptr, 0x0110010Cu,              true},
    {"BGR14",                    0x0230004Au,  48, 14, 3, 16, P::None,        nullptr, BGR14,                    true},
    {"RGB14",                    0x0230005Eu,  48, 14, 3, 16, P::None,        nullptr, RGB14,                    true},
    {"BGRa14",                   0x02400050u,  64, 14, 4, 16, P::None,        nullptr, BGRa14,                   true},
    {"RGBa14",                   0x02400063u,  64, 14, 4, 16, P::None,        nullptr, RGBa14,                   true},
    {"Mono16",                   0x01100007u,  16, 16, 1, 16, P::None,        nullptr, Mono16,                   false},
    {"BayerGR16",                0x0110002Eu,  16, 16, 1, 16, P::None,        "GRBG",  BayerGR16,                true},
    {"BayerRG16",                0x0110002Fu,  16, 16, 1, 16, P::None,        "RGGB",  BayerRG16,                true},
    {"BayerGB16",                0x01100030u,  16, 16, 1, 16, P::None,        "GBRG",  BayerGB16,                true},
    {"BayerBG16",                0x01100031u,  16, 16, 1, 16, P::None,        "BGGR",  BayerBG16,                true},
    {nullptr,                    0x011000CCu,  16, 16, 1,  0, P::Other,       nullptr, 0x011000CCu,              false},
    {nullptr,                    0x011000D0u,  16, 16, 1,  0, P::Other,       nullptr, 0x011000D0u,              false},
    {nullptr,                    0x011000D4u,  16, 16, 1,  0, P::Other,       nullptr, 0x011000D4u,              false},
    {"RGB565p",                  0x02100035u,  16, 16, 3,  0, P::Other,       nullptr, RGB565p,                  true},
    {"BGR565p",                  0x02100036u,  16, 16, 3,  0, P::Other,       nullptr, BGR565p,                  true},
    {"RGB16_Planar",             0x02300024u,  48, 16, 3,  0, P::Other,       nullptr, RGB16_Planar,             true},
    {"RGB16",                    0x02300033u,  48, 16, 3, 16, P::None,        nullptr, RGB16,                    true},
    {"BGR16",                    0x0230004Bu,  48, 16, 3, 16, P::None,        nullptr, BGR16,                    true},
    {"BGRa16",                   0x02400051u,  64, 16, 4, 16, P::None,        nullptr, BGRa16,                   true},
    {"RGBa16",                   0x02400064u,  64, 16, 4, 16, P::None,        nullptr, RGBa16,                   true},
    {nullptr,                    0x01200111u,  32, 32, 1,  0, P::Other,       nullptr, 0x01200111u,              false},
};
// clang-format on

constexpr size_t kFormatCount = sizeof(kFormats) / sizeof(kFormats[0]);

}  // namespace

const PixelFormatInfo* getPixelFormatInfo(PfncFormat_ code) {
    // A linear search: 182 rows compare in well under a microsecond, and a caller asks once
    // per image, not per pixel.
    for (const PixelFormatInfo& f : kFormats)
        if (f.code == code) return &f;
    return nullptr;
}

unsigned int getBitsPerChannel(PfncFormat_ format) {
    const PixelFormatInfo* info = getPixelFormatInfo(format);
    return info != nullptr ? info->bitsPerChannel : 0;
}

uint64_t getPackedByteCount(PfncFormat_ format, uint32_t width, uint32_t height) {
    // 32-bit unsigned arithmetic on purpose: the recorded size of oversized images wraps.
    const uint32_t pixels = width * height;
    const uint32_t bits = getBitsPerPixel(format) * pixels;
    return bits >> 3;
}

size_t getRowStride(PfncFormat_ format, uint32_t width, int64_t paddingX) {
    if (format == 0) return 0;
    const uint32_t packed = getBytesPerPixel(format) * width;
    return static_cast<size_t>(static_cast<uint64_t>(packed) + static_cast<uint64_t>(paddingX));
}

PixelFormatRange getPixelFormats() { return {kFormats, kFormats + kFormatCount}; }

const char* getPixelFormatName(PfncFormat_ format) {
    const PixelFormatInfo* info = getPixelFormatInfo(format);
    return info != nullptr ? info->name : nullptr;
}

PfncFormat_ findPixelFormat(const char* name) {
    if (name == nullptr) return 0;
    for (const PixelFormatInfo& f : kFormats)
        if (f.name != nullptr && strcasecmp(f.name, name) == 0) return f.code;
    return 0;
}

}  // namespace ZTI
