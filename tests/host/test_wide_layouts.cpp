// Built with SKF_WIDE_TYPES, as the wide test driver is: the compiler's own layout of the
// structures with 8-byte ULONG fields, held against the offsets the host's driver adapter writes
// and reads them at. A program of its own, since the host is built with the standard's types.

#include "key/driver_layouts.h"

#include <skf.h>

#include <gtest/gtest.h>

#include <cstddef>

using namespace zthost::DriverLayout;

static_assert(sizeof(ULONG) == 8 && sizeof(BOOL) == 8, "this program is built with SKF_WIDE_TYPES");

TEST(WideDriverLayout, eccCipherBlobOffsetsAreTheCompilers)
{
    EXPECT_EQ(int(offsetof(ECCCIPHERBLOB, XCoordinate)), EccCipherBlob::kXOffset);
    EXPECT_EQ(int(offsetof(ECCCIPHERBLOB, YCoordinate)), EccCipherBlob::kYOffset);
    EXPECT_EQ(int(offsetof(ECCCIPHERBLOB, HASH)), EccCipherBlob::kHashOffset);
    EXPECT_EQ(int(offsetof(ECCCIPHERBLOB, CipherLen)), EccCipherBlob::kCipherLenOffset);
    EXPECT_EQ(int(offsetof(ECCCIPHERBLOB, Cipher)), EccCipherBlob::cipherOffset(8));
    EXPECT_EQ(SKF_ECCCIPHERBLOB_HEADER_LEN, EccCipherBlob::headerLength(8));
}

TEST(WideDriverLayout, blockCipherParamOffsetsAreTheCompilers)
{
    EXPECT_EQ(int(offsetof(BLOCKCIPHERPARAM, IV)), BlockCipherParam::kIvOffset);
    EXPECT_EQ(int(offsetof(BLOCKCIPHERPARAM, IVLen)), BlockCipherParam::ivLenOffset(8));
    EXPECT_EQ(int(offsetof(BLOCKCIPHERPARAM, PaddingType)), BlockCipherParam::paddingTypeOffset(8));
    EXPECT_EQ(int(offsetof(BLOCKCIPHERPARAM, FeedBitLen)), BlockCipherParam::feedBitLenOffset(8));
    EXPECT_EQ(int(sizeof(BLOCKCIPHERPARAM)), BlockCipherParam::size(8));
}

TEST(WideDriverLayout, devInfoOffsetsAreTheCompilers)
{
    using U = DevInfo::Ulong;
    EXPECT_EQ(int(offsetof(DEVINFO, Manufacturer)), DevInfo::kManufacturerOffset);
    EXPECT_EQ(int(offsetof(DEVINFO, Issuer)), DevInfo::kIssuerOffset);
    EXPECT_EQ(int(offsetof(DEVINFO, Label)), DevInfo::kLabelOffset);
    EXPECT_EQ(int(offsetof(DEVINFO, SerialNumber)), DevInfo::kSerialNumberOffset);
    EXPECT_EQ(int(offsetof(DEVINFO, HWVersion)), DevInfo::kHwVersionOffset);
    EXPECT_EQ(int(offsetof(DEVINFO, FirmwareVersion)), DevInfo::kFirmwareVersionOffset);
    EXPECT_EQ(int(offsetof(DEVINFO, AlgSymCap)), DevInfo::ulongOffset(U::AlgSymCap, 8));
    EXPECT_EQ(int(offsetof(DEVINFO, AlgAsymCap)), DevInfo::ulongOffset(U::AlgAsymCap, 8));
    EXPECT_EQ(int(offsetof(DEVINFO, AlgHashCap)), DevInfo::ulongOffset(U::AlgHashCap, 8));
    EXPECT_EQ(int(offsetof(DEVINFO, DevAuthAlgId)), DevInfo::ulongOffset(U::DevAuthAlgId, 8));
    EXPECT_EQ(int(offsetof(DEVINFO, TotalSpace)), DevInfo::ulongOffset(U::TotalSpace, 8));
    EXPECT_EQ(int(offsetof(DEVINFO, FreeSpace)), DevInfo::ulongOffset(U::FreeSpace, 8));
    EXPECT_EQ(int(offsetof(DEVINFO, MaxECCBufferSize)),
              DevInfo::ulongOffset(U::MaxEccBufferSize, 8));
    EXPECT_EQ(int(offsetof(DEVINFO, MaxBufferSize)), DevInfo::ulongOffset(U::MaxBufferSize, 8));
    EXPECT_EQ(int(offsetof(DEVINFO, Reserved)), DevInfo::reservedOffset(8));
    EXPECT_EQ(int(sizeof(DEVINFO)), DevInfo::size(8));
}
