// Devices, applications and containers as the standard lists them: multi-strings in name
// order, size queries, short buffers, and the device information.
#include "softskf_fixture.h"

#include <cstring>
#include <filesystem>

using namespace softskf_test;

namespace {

std::vector<char> enumDevices(ULONG *rv = nullptr)
{
    ULONG size = 0;
    ULONG result = SKF_EnumDev(TRUE, nullptr, &size);
    std::vector<char> list(size, 'x');
    if (result == SAR_OK)
        result = SKF_EnumDev(TRUE, list.data(), &size);
    if (rv)
        *rv = result;
    return list;
}

} // namespace

class SoftSkfEnumeration : public SoftSkfTest {};

TEST_F(SoftSkfEnumeration, missingRootListsNoDevice)
{
    ULONG size = 99;
    ASSERT_EQ(SKF_EnumDev(TRUE, nullptr, &size), SAR_OK);
    EXPECT_EQ(size, 1u);  // the closing NUL alone
    char list[4] = {'x', 'x', 'x', 'x'};
    size = sizeof list;
    ASSERT_EQ(SKF_EnumDev(TRUE, list, &size), SAR_OK);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(list[0], '\0');
}

TEST_F(SoftSkfEnumeration, devicesAreListedInNameOrderAsAMultiString)
{
    provision("zeta");
    provision("alpha");
    provision("Mid");
    ULONG rv = 0;
    const std::vector<char> list = enumDevices(&rv);
    ASSERT_EQ(rv, SAR_OK);
    const char expected[] = "Mid\0alpha\0zeta\0";  // bytewise order: capitals first
    ASSERT_EQ(list.size(), sizeof expected);
    EXPECT_EQ(std::memcmp(list.data(), expected, sizeof expected), 0);
    EXPECT_EQ(softskf::listDevices(root()), (std::vector<std::string>{"Mid", "alpha", "zeta"}));
}

TEST_F(SoftSkfEnumeration, presentFlagIsIgnored)
{
    provision("only");
    ULONG withFlag = 0, withoutFlag = 0;
    ASSERT_EQ(SKF_EnumDev(TRUE, nullptr, &withFlag), SAR_OK);
    ASSERT_EQ(SKF_EnumDev(FALSE, nullptr, &withoutFlag), SAR_OK);
    EXPECT_EQ(withFlag, withoutFlag);
    EXPECT_EQ(withFlag, sizeof "only\0");
}

TEST_F(SoftSkfEnumeration, foldersWithoutADeviceRecordAreNotDevices)
{
    provision("real");
    std::filesystem::create_directories(root() + "/stray");
    std::filesystem::create_directories(root() + "/.hidden");
    EXPECT_EQ(splitNameList(enumDevices()), std::vector<std::string>{"real"});
}

TEST_F(SoftSkfEnumeration, tooSmallBufferAnswersBufferTooSmallWithTheNeededSize)
{
    provision("dev1");
    provision("dev2");
    char list[5];
    ULONG size = sizeof list;
    EXPECT_EQ(SKF_EnumDev(TRUE, list, &size), SAR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 11u);
    EXPECT_EQ(SKF_EnumDev(TRUE, nullptr, nullptr), SAR_INVALIDPARAMERR);
}

TEST_F(SoftSkfEnumeration, rootComesFromTheEnvironment)
{
    provision("here");
    EXPECT_EQ(softskf::rootFromEnvironment(), root());
    ::setenv("SOFTSKF_ROOT", "", 1);
    EXPECT_EQ(softskf::rootFromEnvironment(), softskf::defaultRoot());
    const char *previous = std::getenv("XDG_DATA_HOME");
    const std::string saved = previous ? previous : "";
    ::setenv("XDG_DATA_HOME", "/nonexistent/data", 1);
    EXPECT_EQ(softskf::defaultRoot(), "/nonexistent/data/softskf");
    if (previous)
        ::setenv("XDG_DATA_HOME", saved.c_str(), 1);
    else
        ::unsetenv("XDG_DATA_HOME");
}

TEST_F(SoftSkfEnumeration, connectToAMissingDeviceAnswersDeviceRemoved)
{
    provision("there");
    DEVHANDLE device = nullptr;
    char missing[] = "absent";
    EXPECT_EQ(SKF_ConnectDev(missing, &device), SAR_DEVICE_REMOVED);
    EXPECT_EQ(device, nullptr);
    char traversal[] = "../there";
    EXPECT_EQ(SKF_ConnectDev(traversal, &device), SAR_INVALIDPARAMERR);
    char dot[] = ".";
    EXPECT_EQ(SKF_ConnectDev(dot, &device), SAR_INVALIDPARAMERR);
    std::string tooLong(65, 'a');
    EXPECT_EQ(SKF_ConnectDev(tooLong.data(), &device), SAR_NAMELENERR);
    EXPECT_EQ(SKF_ConnectDev(nullptr, &device), SAR_INVALIDPARAMERR);
}

TEST_F(SoftSkfEnumeration, applicationIsListedAndOpened)
{
    provision("dev");
    DEVHANDLE device = nullptr;
    char name[] = "dev";
    ASSERT_EQ(SKF_ConnectDev(name, &device), SAR_OK);
    ULONG size = 0;
    ASSERT_EQ(SKF_EnumApplication(device, nullptr, &size), SAR_OK);
    std::vector<char> list(size);
    ASSERT_EQ(SKF_EnumApplication(device, list.data(), &size), SAR_OK);
    EXPECT_EQ(splitNameList(list), std::vector<std::string>{"SOFTAPP"});
    EXPECT_EQ(list.back(), '\0');

    HAPPLICATION application = nullptr;
    char other[] = "OTHERAPP";
    EXPECT_EQ(SKF_OpenApplication(device, other, &application), SAR_APPLICATION_NOT_EXISTS);
    char bad[] = "../dev";
    EXPECT_EQ(SKF_OpenApplication(device, bad, &application), SAR_APPLICATION_NAME_INVALID);
    char app[] = "SOFTAPP";
    ASSERT_EQ(SKF_OpenApplication(device, app, &application), SAR_OK);
    EXPECT_EQ(SKF_CloseApplication(application), SAR_OK);
    EXPECT_EQ(SKF_DisConnectDev(device), SAR_OK);
}

TEST_F(SoftSkfEnumeration, containersAreListedInNameOrder)
{
    provision("dev");
    softskf::ContainerOptions options;
    options.name = "A-RSA";
    options.type = softskf::ContainerType::Rsa;
    options.rsaBits = 1024;
    options.withSigningPair = false;
    std::string error;
    ASSERT_TRUE(softskf::addContainer(root(), "dev", kUserPin, options, &error)) << error;

    Session session = open("dev", false);
    ULONG size = 0;
    ASSERT_EQ(SKF_EnumContainer(session.application, nullptr, &size), SAR_OK);
    std::vector<char> list(size);
    ULONG small = 3;
    EXPECT_EQ(SKF_EnumContainer(session.application, list.data(), &small), SAR_BUFFER_TOO_SMALL);
    EXPECT_EQ(small, size);
    ASSERT_EQ(SKF_EnumContainer(session.application, list.data(), &size), SAR_OK);
    EXPECT_EQ(splitNameList(list), (std::vector<std::string>{"A-RSA", "SM2Container"}));
    close(session);
}

TEST_F(SoftSkfEnumeration, deviceInformationNamesTheDevice)
{
    provision("label-me");
    DEVHANDLE device = nullptr;
    char name[] = "label-me";
    ASSERT_EQ(SKF_ConnectDev(name, &device), SAR_OK);
    DEVINFO info;
    std::memset(&info, 0xAB, sizeof info);
    ASSERT_EQ(SKF_GetDevInfo(device, &info), SAR_OK);
    EXPECT_STREQ(info.Label, "label-me");
    EXPECT_STREQ(info.Manufacturer, "softskf");
    EXPECT_EQ(std::strlen(info.SerialNumber), 24u);
    EXPECT_EQ(info.AlgSymCap & SGD_SM4_ECB, static_cast<ULONG>(SGD_SM4_ECB));
    // A packed field is read into a local: binding it to a reference would be misaligned.
    const ULONG maxEccBufferSize = info.MaxECCBufferSize;
    EXPECT_EQ(maxEccBufferSize, 256u);
    EXPECT_EQ(SKF_GetDevInfo(device, nullptr), SAR_INVALIDPARAMERR);

    // A second device has another serial number.
    provision("other");
    DEVHANDLE second = nullptr;
    char otherName[] = "other";
    ASSERT_EQ(SKF_ConnectDev(otherName, &second), SAR_OK);
    DEVINFO otherInfo;
    ASSERT_EQ(SKF_GetDevInfo(second, &otherInfo), SAR_OK);
    EXPECT_STRNE(info.SerialNumber, otherInfo.SerialNumber);
    EXPECT_EQ(SKF_DisConnectDev(second), SAR_OK);
    EXPECT_EQ(SKF_DisConnectDev(device), SAR_OK);
}

TEST_F(SoftSkfEnumeration, provisioningRefusesAnExistingDeviceAndBadOptions)
{
    provision("dup");
    softskf::DeviceOptions options;
    options.name = "dup";
    options.userPin = kUserPin;
    options.adminPin = kAdminPin;
    options.pbkdf2Iterations = kTestIterations;
    std::string error;
    EXPECT_FALSE(softskf::createDevice(root(), options, &error));
    EXPECT_NE(error.find("exists already"), std::string::npos) << error;

    options.name = "short-pin";
    options.userPin = "123";
    EXPECT_FALSE(softskf::createDevice(root(), options, &error));
    EXPECT_NE(error.find("user PIN is 3 bytes"), std::string::npos) << error;

    options.userPin = kUserPin;
    options.name = "a/b";
    EXPECT_FALSE(softskf::createDevice(root(), options, &error));
    EXPECT_EQ(softskf::listDevices(root()), std::vector<std::string>{"dup"});

    EXPECT_TRUE(softskf::removeDevice(root(), "dup", &error)) << error;
    EXPECT_TRUE(softskf::listDevices(root()).empty());
    EXPECT_FALSE(softskf::removeDevice(root(), "dup", &error));
}
