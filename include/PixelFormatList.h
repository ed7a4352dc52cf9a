// The pixel formats the library knows: one row per PFNC code.
//
// F(name, code, bitsPerChannel) names a format; U(code, bitsPerChannel) is a code the library
// knows the depth of but never names. bitsPerChannel is the significant depth of one channel:
// for 16-bit containers it is the depth of the data (Mono12 gives 12), for colour formats it is
// per channel (RGB8 gives 8), and the 5-6-5 formats give the whole pixel (16). Codes that are
// not listed have no known depth (0).
#pragma once

// clang-format off
#define ZT_PFNC_FORMAT_LIST(F, U)                                                        \
    /* name                       code        bits */                                     \
    F(Mono1p,                     0x01010037, 1)                                          \
    F(Mono2p,                     0x01020038, 2)                                          \
    F(Mono4p,                     0x01040039, 4)                                          \
    U(0x0104010D, 4) U(0x0104010E, 4) U(0x0104010F, 4) U(0x01040110, 4)                  \
    F(Mono8,                      0x01080001, 8)                                          \
    F(Mono8s,                     0x01080002, 8)                                          \
    F(BayerGR8,                   0x01080008, 8)                                          \
    F(BayerRG8,                   0x01080009, 8)                                          \
    F(BayerGB8,                   0x0108000A, 8)                                          \
    F(BayerBG8,                   0x0108000B, 8)                                          \
    U(0x010800C9, 8) U(0x010800CD, 8) U(0x010800D1, 8)                                    \
    F(YUV411_8_UYYVYY,            0x020C001E, 8)                                          \
    F(YCbCr411_8_CbYYCrYY,        0x020C003C, 8)                                          \
    F(YCbCr601_411_8_CbYYCrYY,    0x020C003F, 8)                                          \
    F(YCbCr709_411_8_CbYYCrYY,    0x020C0042, 8)                                          \
    U(0x020C005A, 8) U(0x020C00F9, 8) U(0x020C0112, 8) U(0x020C0114, 8)                  \
    F(YUV422_8_UYVY,              0x0210001F, 8)                                          \
    F(YUV422_8,                   0x02100032, 8)                                          \
    F(YCbCr422_8,                 0x0210003B, 8)                                          \
    F(YCbCr601_422_8,             0x0210003E, 8)                                          \
    F(YCbCr709_422_8,             0x02100041, 8)                                          \
    F(YCbCr422_8_CbYCrY,          0x02100043, 8)                                          \
    F(YCbCr601_422_8_CbYCrY,      0x02100044, 8)                                          \
    F(YCbCr709_422_8_CbYCrY,      0x02100045, 8)                                          \
    U(0x021000FA, 8) U(0x021000FB, 8) U(0x02100113, 8) U(0x02100115, 8)                  \
    F(RGB8,                       0x02180014, 8)                                          \
    F(BGR8,                       0x02180015, 8)                                          \
    F(YUV8_UYV,                   0x02180020, 8)                                          \
    F(RGB8_Planar,                0x02180021, 8)                                          \
    F(YCbCr8_CbYCr,               0x0218003A, 8)                                          \
    F(YCbCr601_8_CbYCr,           0x0218003D, 8)                                          \
    F(YCbCr709_8_CbYCr,           0x02180040, 8)                                          \
    F(YCbCr8,                     0x0218005B, 8)                                          \
    U(0x021800F4, 8)                                                                      \
    F(RGBa8,                      0x02200016, 8)                                          \
    F(BGRa8,                      0x02200017, 8)                                          \
    F(Mono10p,                    0x010A0046, 10)                                         \
    F(BayerBG10p,                 0x010A0052, 10)                                         \
    F(BayerGB10p,                 0x010A0054, 10)                                         \
    F(BayerGR10p,                 0x010A0056, 10)                                         \
    F(BayerRG10p,                 0x010A0058, 10)                                         \
    F(Mono10Packed,               0x010C0004, 10)                                         \
    F(BayerGR10Packed,            0x010C0026, 10)                                         \
    F(BayerRG10Packed,            0x010C0027, 10)                                         \
    F(BayerGB10Packed,            0x010C0028, 10)                                         \
    F(BayerBG10Packed,            0x010C0029, 10)                                         \
    F(Mono10,                     0x01100003, 10)                                         \
    F(BayerGR10,                  0x0110000C, 10)                                         \
    F(BayerRG10,                  0x0110000D, 10)                                         \
    F(BayerGB10,                  0x0110000E, 10)                                         \
    F(BayerBG10,                  0x0110000F, 10)                                         \
    U(0x01100120, 10) U(0x01100122, 10) U(0x01100124, 10)                                 \
    U(0x02140087, 10) U(0x0214008E, 10) U(0x02140096, 10) U(0x0214009A, 10)              \
    U(0x0214009E, 10) U(0x021400A2, 10) U(0x021400FE, 10) U(0x021400FF, 10)              \
    F(BGR10p,                     0x021E0048, 10)                                         \
    F(RGB10p,                     0x021E005C, 10)                                         \
    U(0x021E0084, 10) U(0x021E008A, 10) U(0x021E0092, 10) U(0x021E00F6, 10)              \
    F(RGB10V1Packed,              0x0220001C, 10)                                         \
    F(RGB10p32,                   0x0220001D, 10)                                         \
    U(0x02200065, 10) U(0x0220008D, 10) U(0x02200095, 10) U(0x02200099, 10)              \
    U(0x0220009D, 10) U(0x022000A1, 10) U(0x022000FC, 10) U(0x022000FD, 10)              \
    F(BGRa10p,                    0x0228004D, 10)                                         \
    F(RGBa10p,                    0x02280060, 10)                                         \
    F(RGB10,                      0x02300018, 10)                                         \
    F(BGR10,                      0x02300019, 10)                                         \
    F(RGB10_Planar,               0x02300022, 10)                                         \
    U(0x02300083, 10) U(0x02300089, 10) U(0x02300091, 10) U(0x023000F5, 10)              \
    F(BGRa10,                     0x0240004C, 10)                                         \
    F(RGBa10,                     0x0240005F, 10)                                         \
    F(Mono12Packed,               0x010C0006, 12)                                         \
    F(BayerGR12Packed,            0x010C002A, 12)                                         \
    F(BayerRG12Packed,            0x010C002B, 12)                                         \
    F(BayerGB12Packed,            0x010C002C, 12)                                         \
    F(BayerBG12Packed,            0x010C002D, 12)                                         \
    F(Mono12p,                    0x010C0047, 12)                                         \
    F(BayerBG12p,                 0x010C0053, 12)                                         \
    F(BayerGB12p,                 0x010C0055, 12)                                         \
    F(BayerGR12p,                 0x010C0057, 12)                                         \
    F(BayerRG12p,                 0x010C0059, 12)                                         \
    F(Mono12,                     0x01100005, 12)                                         \
    F(BayerGR12,                  0x01100010, 12)                                         \
    F(BayerRG12,                  0x01100011, 12)                                         \
    F(BayerGB12,                  0x01100012, 12)                                         \
    F(BayerBG12,                  0x01100013, 12)                                         \
    U(0x01100121, 12) U(0x01100123, 12) U(0x01100125, 12)                                 \
    U(0x02180088, 12) U(0x02180090, 12) U(0x02180098, 12) U(0x0218009C, 12)              \
    U(0x021800A0, 12) U(0x021800A4, 12) U(0x02180102, 12) U(0x02180103, 12)              \
    U(0x02200066, 12) U(0x0220008F, 12) U(0x02200097, 12) U(0x0220009B, 12)              \
    U(0x0220009F, 12) U(0x022000A3, 12) U(0x02200100, 12) U(0x02200101, 12)              \
    F(RGB12V1Packed,              0x02240034, 12)                                         \
    F(BGR12p,                     0x02240049, 12)                                         \
    F(RGB12p,                     0x0224005D, 12)                                         \
    U(0x02240086, 12) U(0x0224008C, 12) U(0x02240094, 12) U(0x022400F8, 12)              \
    F(RGB12,                      0x0230001A, 12)                                         \
    F(BGR12,                      0x0230001B, 12)                                         \
    F(RGB12_Planar,               0x02300023, 12)                                         \
    U(0x0230004F, 12) U(0x02300062, 12) U(0x02300085, 12) U(0x0230008B, 12)              \
    U(0x02300093, 12) U(0x023000F7, 12)                                                   \
    F(BGRa12,                     0x0240004E, 12)                                         \
    F(RGBa12,                     0x02400061, 12)                                         \
    U(0x010E0104, 14) U(0x010E0105, 14) U(0x010E0106, 14) U(0x010E0107, 14)              \
    U(0x010E0108, 14)                                                                     \
    F(Mono14,                     0x01100025, 14)                                         \
    U(0x01100109, 14) U(0x0110010A, 14) U(0x0110010B, 14) U(0x0110010C, 14)              \
    F(BGR14,                      0x0230004A, 14)                                         \
    F(RGB14,                      0x0230005E, 14)                                         \
    F(BGRa14,                     0x02400050, 14)                                         \
    F(RGBa14,                     0x02400063, 14)                                         \
    F(Mono16,                     0x01100007, 16)                                         \
    F(BayerGR16,                  0x0110002E, 16)                                         \
    F(BayerRG16,                  0x0110002F, 16)                                         \
    F(BayerGB16,                  0x01100030, 16)                                         \
    F(BayerBG16,                  0x01100031, 16)                                         \
    U(0x011000CC, 16) U(0x011000D0, 16) U(0x011000D4, 16)                                 \
    F(RGB565p,                    0x02100035, 16)                                         \
    F(BGR565p,                    0x02100036, 16)                                         \
    F(RGB16_Planar,               0x02300024, 16)                                         \
    F(RGB16,                      0x02300033, 16)                                         \
    F(BGR16,                      0x0230004B, 16)                                         \
    F(BGRa16,                     0x02400051, 16)                                         \
    F(RGBa16,                     0x02400064, 16)                                         \
    U(0x01200111, 32)
// clang-format on
