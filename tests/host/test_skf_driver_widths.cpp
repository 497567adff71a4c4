// The driver adapter against drivers whose ULONG and BOOL are 4 bytes (the standard) or 8 (as some
// vendors' headers declare them): outputs backed by 8 bytes and read right in both widths, the
// structures laid out per width, the width detected or set and a wrong setting refused, and
// optional functions missing by name. The wide driver is the software device built a second time
// with SKF_WIDE_TYPES; under `make test-asan` a write past any output would fail these tests.

#include "test_key_component_fixture.h"

#include "key/driver_layouts.h"
#include "key/driver_structures.h"
#include "key/key_component.h"
#include "key/key_object.h"
#include "key/out_parameter.h"
#include "key/skf_driver.h"
#include "recording_driver.h"

#include <cstddef>
#include <cstring>

using namespace zthost;

namespace {

const QString kStandardDriver = QStringLiteral(ZT_SOFTSKF_DRIVER_PATH);
const QString kWideDriver = QStringLiteral(ZT_WIDE_DRIVER_PATH);
const QString kSparseDriver = QStringLiteral(ZT_WIDE_SPARSE_DRIVER_PATH);

std::unique_ptr<SkfDriver> loaded(const QString &path, DriverProfile profile)
{
    QString error;
    std::unique_ptr<SkfDriver> driver = SkfDriver::load(path, profile, &error);
    EXPECT_NE(driver, nullptr) << error.toStdString();
    return driver;
}

quint64 littleEndianAt(const QByteArray &bytes, int offset, int length)
{
    quint64 value = 0;
    for (int i = length - 1; i >= 0; --i)
        value = value << 8 | quint8(bytes.at(offset + i));
    return value;
}

} // namespace

// ---- outputs ---------------------------------------------------------------------------------

TEST(OutParameter, aFourByteWriteIsSeenAndReadFromTheLowerHalf)
{
    OutParameter out = OutParameter::output();
    const quint32 written = 0x01020304u;
    std::memcpy(out.address(), &written, sizeof written);
    EXPECT_EQ(out.writtenBytes(), 4);
    EXPECT_EQ(out.value(), 0x01020304u);
    EXPECT_EQ(out.value32(), 0x01020304u);
}

TEST(OutParameter, anEightByteWriteIsSeenEvenWhenItsUpperHalfIsZero)
{
    OutParameter out = OutParameter::output();
    const unsigned long written = 5;
    std::memcpy(out.address(), &written, sizeof written);
    EXPECT_EQ(out.writtenBytes(), 8);
    EXPECT_EQ(out.value(), 5u);
}

TEST(OutParameter, anUnwrittenOutputReadsAsZero)
{
    const OutParameter out = OutParameter::output();
    EXPECT_EQ(out.writtenBytes(), 0);
    EXPECT_EQ(out.value(), 0u);
}

TEST(OutParameter, anInOutValueIsZeroExtendedSoBothWidthsReadIt)
{
    OutParameter out = OutParameter::inOut(300);
    quint32 asFour = 0;
    unsigned long asEight = 0;
    std::memcpy(&asFour, out.address(), sizeof asFour);
    std::memcpy(&asEight, out.address(), sizeof asEight);
    EXPECT_EQ(asFour, 300u);
    EXPECT_EQ(asEight, 300u);
    // A 4-byte driver writes back only the lower half.
    const quint32 back = 120;
    std::memcpy(out.address(), &back, sizeof back);
    EXPECT_EQ(out.value(), 120u);
    EXPECT_EQ(out.writtenBytes(), 0); // an in-out value tells nothing about the width
}

TEST(OutParameter, aValuePastThirtyTwoBitsReadsAsTheLargestUlong)
{
    OutParameter out = OutParameter::output();
    const unsigned long written = 0x100000000ul;
    std::memcpy(out.address(), &written, sizeof written);
    EXPECT_EQ(out.value(), 0x100000000ull);
    EXPECT_EQ(out.value32(), 0xFFFFFFFFu);
}

// ---- structures ------------------------------------------------------------------------------

TEST(DriverLayouts, theStandardOffsetsAreThoseOfTheStandardHeader)
{
    using namespace DriverLayout;
    EXPECT_EQ(int(offsetof(ECCCIPHERBLOB, CipherLen)), EccCipherBlob::kCipherLenOffset);
    EXPECT_EQ(int(offsetof(ECCCIPHERBLOB, Cipher)), EccCipherBlob::cipherOffset(4));
    EXPECT_EQ(int(offsetof(ECCCIPHERBLOB, HASH)), EccCipherBlob::kHashOffset);
    EXPECT_EQ(int(offsetof(BLOCKCIPHERPARAM, IVLen)), BlockCipherParam::ivLenOffset(4));
    EXPECT_EQ(int(offsetof(BLOCKCIPHERPARAM, PaddingType)), BlockCipherParam::paddingTypeOffset(4));
    EXPECT_EQ(int(offsetof(BLOCKCIPHERPARAM, FeedBitLen)), BlockCipherParam::feedBitLenOffset(4));
    EXPECT_EQ(int(sizeof(BLOCKCIPHERPARAM)), BlockCipherParam::size(4));
    EXPECT_EQ(int(offsetof(DEVINFO, AlgSymCap)),
              DevInfo::ulongOffset(DevInfo::Ulong::AlgSymCap, 4));
    EXPECT_EQ(int(offsetof(DEVINFO, MaxBufferSize)),
              DevInfo::ulongOffset(DevInfo::Ulong::MaxBufferSize, 4));
    EXPECT_EQ(int(offsetof(DEVINFO, Reserved)), DevInfo::reservedOffset(4));
    EXPECT_EQ(int(sizeof(DEVINFO)), DevInfo::size(4));
}

TEST(DriverStructures, theCipherBlobGoesToAStandardDriverAsItIs)
{
    const QByteArray blob(180, '\x5c');
    EXPECT_EQ(eccCipherBlobForDriver(blob, 4, nullptr), blob);
    // Even one the driver will refuse: judging it is the driver's job.
    EXPECT_EQ(eccCipherBlobForDriver(blob.left(10), 4, nullptr), blob.left(10));
}

TEST(DriverStructures, theCipherBlobGetsAnEightByteCipherLenForAWideDriver)
{
    QByteArray blob(180, '\0');
    for (int i = 0; i < 160; ++i)
        blob[i] = char(i);
    blob[160] = 16; // CipherLen 16, little-endian
    for (int i = 164; i < 180; ++i)
        blob[i] = char(0xC0 + i - 164);
    const std::optional<QByteArray> wide = eccCipherBlobForDriver(blob, 8, nullptr);
    ASSERT_TRUE(wide.has_value());
    ASSERT_EQ(wide->size(), 184);
    EXPECT_EQ(wide->left(160), blob.left(160));
    EXPECT_EQ(littleEndianAt(*wide, 160, 8), 16u);
    EXPECT_EQ(wide->mid(168), blob.mid(164));
}

TEST(DriverStructures, aCipherBlobShorterThanItsHeaderCannotBeWidened)
{
    QString error;
    EXPECT_FALSE(eccCipherBlobForDriver(QByteArray(163, '\0'), 8, &error).has_value());
    EXPECT_EQ(error,
              QStringLiteral("ECC cipher blob is 163 bytes, shorter than its 164-byte header"));
    // The bare header is a blob with no cipher bytes: the driver refuses it, not the host.
    EXPECT_EQ(eccCipherBlobForDriver(QByteArray(164, '\0'), 8, nullptr)->size(), 168);
}

TEST(DriverStructures, theBlockCipherParamIsWrittenAtEachWidthsOffsets)
{
    BLOCKCIPHERPARAM param;
    std::memset(&param, 0, sizeof param);
    for (int i = 0; i < 32; ++i)
        param.IV[i] = BYTE(0xA0 + i);
    param.IVLen = 16;
    param.PaddingType = 1;
    param.FeedBitLen = 0x01020304;
    for (int width : {4, 8}) {
        SCOPED_TRACE(width);
        using namespace DriverLayout::BlockCipherParam;
        QByteArray bytes(size(width), '\x77');
        encodeBlockCipherParam(param, width, reinterpret_cast<unsigned char *>(bytes.data()));
        EXPECT_EQ(bytes.left(32), QByteArray(reinterpret_cast<const char *>(param.IV), 32));
        EXPECT_EQ(littleEndianAt(bytes, ivLenOffset(width), width), 16u);
        EXPECT_EQ(littleEndianAt(bytes, paddingTypeOffset(width), width), 1u);
        EXPECT_EQ(littleEndianAt(bytes, feedBitLenOffset(width), width), 0x01020304u);
    }
}

TEST(DriverStructures, devInfoIsReadAtEachWidthsOffsets)
{
    for (int width : {4, 8}) {
        SCOPED_TRACE(width);
        using namespace DriverLayout::DevInfo;
        QByteArray bytes(size(width), '\0');
        bytes[kVersionOffset] = 1;
        bytes[kVersionOffset + 1] = 2;
        bytes.replace(kManufacturerOffset, 6, "vendor");
        bytes.replace(kLabelOffset, kLabelLength, QByteArray(kLabelLength, 'L')); // no NUL
        bytes[kFirmwareVersionOffset] = 7;
        bytes[ulongOffset(Ulong::AlgSymCap, width)] = 0x01;
        bytes[ulongOffset(Ulong::AlgSymCap, width) + 1] = 0x04;
        bytes[ulongOffset(Ulong::MaxBufferSize, width) + 3] = char(0x80);
        bytes[reservedOffset(width)] = char(0xEE);
        const DeviceInfo info =
            decodeDevInfo(reinterpret_cast<const unsigned char *>(bytes.constData()), width);
        EXPECT_EQ(info.versionMajor, 1);
        EXPECT_EQ(info.versionMinor, 2);
        EXPECT_EQ(info.manufacturer, QByteArrayLiteral("vendor"));
        EXPECT_EQ(info.label, QByteArray(kLabelLength, 'L'));
        EXPECT_EQ(info.firmwareMajor, 7);
        EXPECT_EQ(info.algSymCap, 0x401u);
        EXPECT_EQ(info.maxBufferSize, 0x80000000u);
        EXPECT_EQ(info.algAsymCap, 0u);
    }
}

// ---- width detection and profiles ------------------------------------------------------------

TEST(DriverProfileNames, parseOnlyTheThreeNames)
{
    EXPECT_EQ(parseDriverProfile(QStringLiteral("auto")), DriverProfile::Auto);
    EXPECT_EQ(parseDriverProfile(QStringLiteral("standard")), DriverProfile::Standard);
    EXPECT_EQ(parseDriverProfile(QStringLiteral("wide")), DriverProfile::Wide);
    EXPECT_FALSE(parseDriverProfile(QStringLiteral("Wide")).has_value());
    EXPECT_FALSE(parseDriverProfile(QString()).has_value());
    EXPECT_EQ(driverProfileNames(), QStringList({"auto", "standard", "wide"}));
}

class DriverWidthTest : public KeyComponentTest
{};

TEST_F(DriverWidthTest, autoDetectsEachDriversWidthWhenItLoads)
{
    const std::unique_ptr<SkfDriver> standard = loaded(kStandardDriver, DriverProfile::Auto);
    const std::unique_ptr<SkfDriver> wide = loaded(kWideDriver, DriverProfile::Auto);
    ASSERT_TRUE(standard && wide);
    EXPECT_EQ(standard->seenUlongBytes(), 4);
    EXPECT_EQ(wide->seenUlongBytes(), 8);
    EXPECT_EQ(standard->structureWidth(nullptr), 4);
    EXPECT_EQ(wide->structureWidth(nullptr), 8);
    EXPECT_EQ(standard->widthDescription(), QStringLiteral("4-byte ULONG (detected)"));
    EXPECT_EQ(wide->widthDescription(), QStringLiteral("8-byte ULONG (detected)"));
}

TEST_F(DriverWidthTest, aProfileThatMatchesIsTakenAsSet)
{
    const std::unique_ptr<SkfDriver> standard = loaded(kStandardDriver, DriverProfile::Standard);
    const std::unique_ptr<SkfDriver> wide = loaded(kWideDriver, DriverProfile::Wide);
    ASSERT_TRUE(standard && wide);
    EXPECT_EQ(standard->widthDescription(), QStringLiteral("4-byte ULONG (profile standard)"));
    EXPECT_EQ(wide->widthDescription(), QStringLiteral("8-byte ULONG (profile wide)"));
}

TEST_F(DriverWidthTest, aWrongProfileIsRefusedAtLoadWithWhatToChoose)
{
    struct Row
    {
        QString path;
        DriverProfile profile;
        QString error;
        const char *reason;
    };
    const Row rows[] = {
        {kWideDriver, DriverProfile::Standard,
         QStringLiteral("smart-key driver %1 writes 8-byte ULONG values, but the driver profile "
                        "is standard (4-byte ULONG): choose the driver profile wide, or auto to "
                        "detect it")
             .arg(kWideDriver),
         "an 8-byte driver set to standard"},
        {kStandardDriver, DriverProfile::Wide,
         QStringLiteral("smart-key driver %1 writes 4-byte ULONG values, but the driver profile "
                        "is wide (8-byte ULONG): choose the driver profile standard, or auto to "
                        "detect it")
             .arg(kStandardDriver),
         "a 4-byte driver set to wide"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        QString error;
        EXPECT_EQ(SkfDriver::load(row.path, row.profile, &error), nullptr);
        EXPECT_EQ(error, row.error);
    }
}

TEST_F(DriverWidthTest, aKeyComponentWithAWrongProfileListsNothingAndLogsWhy)
{
    provision(QStringLiteral("alpha"));
    useDriver(kWideDriver);
    useProfile(DriverProfile::Standard);
    EXPECT_EQ(component().driver(), nullptr);
    EXPECT_EQ(component().count(), 0);
    EXPECT_TRUE(logText().contains(
        QStringLiteral("[error] smart-key driver %1 writes 8-byte ULONG values").arg(kWideDriver)))
        << logText().toStdString();
}

TEST_F(DriverWidthTest, theDetectedWidthGoesToTheDebugLog)
{
    useDriver(kWideDriver);
    ASSERT_NE(component().driver(), nullptr);
    EXPECT_TRUE(logText().contains(
        QStringLiteral("[debug] smart-key driver %1: 8-byte ULONG (detected)").arg(kWideDriver)))
        << logText().toStdString();
}

TEST_F(DriverWidthTest, aDriverThatWritesNothingAtLoadIsLearntFromItsNextOutput)
{
    // The recording driver answers the armed failure without writing the size.
    zt_forget_recorded_calls();
    zt_fail_next_call("SKF_EnumDev", SAR_FAIL);
    const std::unique_ptr<SkfDriver> driver =
        loaded(QStringLiteral(ZT_RECORDING_DRIVER_PATH), DriverProfile::Auto);
    ASSERT_NE(driver, nullptr);
    EXPECT_EQ(driver->seenUlongBytes(), 0);
    QString problem;
    EXPECT_EQ(driver->structureWidth(&problem), 0);
    EXPECT_EQ(problem, QStringLiteral("the ULONG width of smart-key driver %1 is not known yet: "
                                      "choose the driver profile standard or wide")
                           .arg(QStringLiteral(ZT_RECORDING_DRIVER_PATH)));
    EXPECT_EQ(driver->widthDescription(), QStringLiteral("ULONG width not detected yet"));
    // No structure is handed over while the width is unknown: the driver is not even called.
    BLOCKCIPHERPARAM param{};
    EXPECT_EQ(driver->decryptInit(nullptr, param), ULONG(SAR_NOTSUPPORTYETERR));
    EXPECT_EQ(driver->importSessionKey(nullptr, 0x401, QByteArray(180, '\0'), nullptr),
              ULONG(SAR_NOTSUPPORTYETERR));

    ULONG size = 0;
    EXPECT_EQ(driver->enumDev(true, nullptr, &size), ULONG(SAR_OK));
    EXPECT_EQ(size, 1u); // the empty list: its closing NUL
    EXPECT_EQ(driver->structureWidth(nullptr), 4);
    zt_forget_recorded_calls();
}

TEST_F(DriverWidthTest, aSetProfileStandsWhenNothingCanBeSeenAtLoad)
{
    zt_forget_recorded_calls();
    zt_fail_next_call("SKF_EnumDev", SAR_FAIL);
    const std::unique_ptr<SkfDriver> driver =
        loaded(QStringLiteral(ZT_RECORDING_DRIVER_PATH), DriverProfile::Standard);
    ASSERT_NE(driver, nullptr);
    EXPECT_EQ(driver->structureWidth(nullptr), 4);
    zt_forget_recorded_calls();
}

// ---- the wide driver through the key objects -------------------------------------------------

TEST_F(DriverWidthTest, triesLeftAndPinInfoReadRightFromAWideDriver)
{
    provision(QStringLiteral("alpha"));
    useDriver(kWideDriver);
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    EXPECT_FALSE(key->verifyPin(QLatin1String(kWrongPin), false));
    EXPECT_TRUE(logText().contains(QStringLiteral(
        "key device \"alpha\": SKF_VerifyPIN failed: 0x0A000024 SAR_PIN_INCORRECT (the PIN is "
        "wrong), 5 tries left for the user PIN")))
        << logText().toStdString();

    const std::unique_ptr<SkfDriver> wide = loaded(kWideDriver, DriverProfile::Auto);
    ASSERT_NE(wide, nullptr);
    SkfDriver &driver = *wide;
    QByteArray name("alpha");
    DEVHANDLE device = nullptr;
    ASSERT_EQ(driver.connectDev(name.data(), &device), ULONG(SAR_OK));
    HAPPLICATION application = nullptr;
    QByteArray appName("SOFTAPP");
    ASSERT_EQ(driver.openApplication(device, appName.data(), &application), ULONG(SAR_OK));
    ULONG maxTries = 0;
    ULONG triesLeft = 0;
    bool isDefault = true;
    ASSERT_EQ(driver.getPinInfo(application, USER_TYPE, &maxTries, &triesLeft, &isDefault),
              ULONG(SAR_OK));
    EXPECT_EQ(maxTries, 6u);
    EXPECT_EQ(triesLeft, 5u);
    EXPECT_FALSE(isDefault);
    EXPECT_EQ(driver.seenBoolBytes(), 8);
    EXPECT_EQ(driver.closeApplication(application), ULONG(SAR_OK));
    EXPECT_EQ(driver.disconnectDev(device), ULONG(SAR_OK));
}

TEST_F(DriverWidthTest, devInfoReadsTheSameFromBothWidths)
{
    provision(QStringLiteral("alpha"));
    QList<DeviceInfo> infos;
    for (const QString &path : {kStandardDriver, kWideDriver}) {
        SCOPED_TRACE(path.toStdString());
        const std::unique_ptr<SkfDriver> driver = loaded(path, DriverProfile::Auto);
        ASSERT_NE(driver, nullptr);
        QByteArray name("alpha");
        DEVHANDLE device = nullptr;
        ASSERT_EQ(driver->connectDev(name.data(), &device), ULONG(SAR_OK));
        DeviceInfo info;
        ASSERT_EQ(driver->getDevInfo(device, &info), ULONG(SAR_OK));
        EXPECT_EQ(info.manufacturer, QByteArrayLiteral("softskf"));
        EXPECT_EQ(info.issuer, QByteArrayLiteral("softskf software key device"));
        EXPECT_EQ(info.label, QByteArrayLiteral("alpha"));
        EXPECT_FALSE(info.serialNumber.isEmpty());
        EXPECT_EQ(info.algSymCap, quint64(SGD_SM4_ECB));
        EXPECT_EQ(info.algAsymCap, quint64(SGD_SM2_1 | SGD_SM2_3 | SGD_RSA));
        EXPECT_EQ(info.algHashCap, quint64(SGD_SM3));
        EXPECT_EQ(info.devAuthAlgId, quint64(SGD_SM4_ECB));
        EXPECT_EQ(info.maxEccBufferSize, 256u);
        EXPECT_EQ(info.maxBufferSize, 0xFFFFFFF0u);
        EXPECT_EQ(driver->disconnectDev(device), ULONG(SAR_OK));
        infos.append(info);
    }
    ASSERT_EQ(infos.size(), 2);
    EXPECT_EQ(infos.at(0).serialNumber, infos.at(1).serialNumber);
}

// ---- missing functions -----------------------------------------------------------------------

TEST_F(DriverWidthTest, aDriverWithoutTheOptionalFunctionsLoadsAndNamesEach)
{
    const std::unique_ptr<SkfDriver> sparse = loaded(kSparseDriver, DriverProfile::Auto);
    ASSERT_NE(sparse, nullptr);
    EXPECT_TRUE(sparse->has(SkfFunction::GetDevInfo));
    for (SkfFunction missing :
         {SkfFunction::GetPINInfo, SkfFunction::ChangePIN, SkfFunction::UnblockPIN}) {
        SCOPED_TRACE(skfFunctionName(missing));
        EXPECT_FALSE(sparse->has(missing));
        QString error;
        EXPECT_FALSE(sparse->require(missing, &error));
        EXPECT_EQ(error, QStringLiteral("smart-key driver %1 has no %2")
                             .arg(kSparseDriver, QLatin1String(skfFunctionName(missing))));
    }
    // Called anyway, each answers "not supported" instead of jumping to nowhere.
    ULONG a = 7, b = 7;
    bool flag = true;
    QByteArray pin("123456");
    EXPECT_EQ(sparse->getPinInfo(nullptr, USER_TYPE, &a, &b, &flag), ULONG(SAR_NOTSUPPORTYETERR));
    EXPECT_EQ(sparse->changePin(nullptr, USER_TYPE, pin.data(), pin.data(), &a),
              ULONG(SAR_NOTSUPPORTYETERR));
    EXPECT_EQ(sparse->unblockPin(nullptr, pin.data(), pin.data(), &a), ULONG(SAR_NOTSUPPORTYETERR));
}

TEST_F(DriverWidthTest, aDriverWithoutTheOptionalFunctionsStillDecrypts)
{
    provision(QStringLiteral("alpha"));
    useDriver(kSparseDriver);
    KeyObject *key = openFirst();
    ASSERT_NE(key, nullptr);
    const qulonglong container = key->openContainer(QLatin1String(kContainer));
    ASSERT_NE(container, 0u);
    EXPECT_EQ(key->getContainerType(container), 2);
    EXPECT_TRUE(key->verifyPin(QLatin1String(kUserPin), false));
    EXPECT_EQ(key->exportCertificate(container, false), storedCertificate(QStringLiteral("alpha")));
}
