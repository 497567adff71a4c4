// Handles are registry entries: unknown, closed or wrong-kind handles answer
// SAR_INVALIDHANDLEERR, and disconnecting a device releases everything opened through it.
#include "softskf_fixture.h"

using namespace softskf_test;

namespace {

// Every entry point that takes a handle, called with `handle`.
std::vector<ULONG> callEverything(HANDLE handle)
{
    char name[] = "SM2Container";
    char pin[] = "12345678";
    ULONG size = 64, a = 0, b = 0;
    BOOL flag = FALSE;
    BYTE buffer[64] = {};
    HANDLE out = nullptr;
    DEVINFO info;
    return {
        SKF_DisConnectDev(handle),
        SKF_GetDevInfo(handle, &info),
        SKF_EnumApplication(handle, nullptr, &size),
        SKF_OpenApplication(handle, name, &out),
        SKF_CloseApplication(handle),
        SKF_VerifyPIN(handle, USER_TYPE, pin, &a),
        SKF_GetPINInfo(handle, USER_TYPE, &a, &b, &flag),
        SKF_ClearSecureState(handle),
        SKF_EnumContainer(handle, nullptr, &size),
        SKF_OpenContainer(handle, name, &out),
        SKF_CloseContainer(handle),
        SKF_GetContainerType(handle, &a),
        SKF_ExportCertificate(handle, FALSE, buffer, &size),
        SKF_ImportSessionKey(handle, SGD_SM4_ECB, buffer, sizeof buffer, &out),
        SKF_DecryptInit(handle, paddingParam(SKF_PKCS7_PADDING)),
        SKF_Decrypt(handle, buffer, 16, buffer, &size),
        SKF_CloseHandle(handle),
    };
}

} // namespace

class SoftSkfHandles : public SoftSkfTest {};

TEST_F(SoftSkfHandles, unknownHandlesAreRefused)
{
    for (HANDLE handle : {static_cast<HANDLE>(nullptr), reinterpret_cast<HANDLE>(0xDEADBEEF),
                          reinterpret_cast<HANDLE>(~std::uintptr_t(0))}) {
        SCOPED_TRACE(handle);
        for (ULONG rv : callEverything(handle))
            EXPECT_EQ(rv, SAR_INVALIDHANDLEERR);
    }
}

TEST_F(SoftSkfHandles, handlesOfAnotherKindAreRefused)
{
    provision("dev");
    Session session = open("dev");
    ULONG type = 0, size = 0;
    EXPECT_EQ(SKF_GetContainerType(session.application, &type), SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_EnumContainer(session.device, nullptr, &size), SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_DecryptInit(session.container, paddingParam(SKF_PKCS7_PADDING)),
              SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_CloseHandle(session.container), SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_DisConnectDev(session.application), SAR_INVALIDHANDLEERR);
    close(session);
}

TEST_F(SoftSkfHandles, closedHandlesAreRefused)
{
    provision("dev");
    Session session = open("dev");
    Bytes blob = wrapForCertificate(encryptionCertificate(root(), "dev"), randomBytes(16));
    HANDLE key = nullptr;
    ASSERT_EQ(SKF_ImportSessionKey(session.container, SGD_SM4_ECB, blob.data(),
                                   static_cast<ULONG>(blob.size()), &key),
              SAR_OK);
    EXPECT_EQ(SKF_CloseHandle(key), SAR_OK);
    EXPECT_EQ(SKF_CloseHandle(key), SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING)), SAR_INVALIDHANDLEERR);

    EXPECT_EQ(SKF_CloseContainer(session.container), SAR_OK);
    ULONG type = 0;
    EXPECT_EQ(SKF_GetContainerType(session.container, &type), SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_CloseContainer(session.container), SAR_INVALIDHANDLEERR);

    EXPECT_EQ(SKF_CloseApplication(session.application), SAR_OK);
    EXPECT_EQ(SKF_ClearSecureState(session.application), SAR_INVALIDHANDLEERR);
    close(session);
    EXPECT_EQ(SKF_DisConnectDev(session.device), SAR_INVALIDHANDLEERR);
}

TEST_F(SoftSkfHandles, closingTheApplicationReleasesItsContainers)
{
    provision("dev");
    Session session = open("dev");
    ASSERT_EQ(SKF_CloseApplication(session.application), SAR_OK);
    ULONG type = 0;
    EXPECT_EQ(SKF_GetContainerType(session.container, &type), SAR_INVALIDHANDLEERR);
    close(session);
}

TEST_F(SoftSkfHandles, disconnectReleasesEverythingOpenedThroughTheDevice)
{
    provision("one");
    provision("two");
    Session one = open("one");
    Session two = open("two");
    Bytes blob = wrapForCertificate(encryptionCertificate(root(), "one"), randomBytes(16));
    std::vector<HANDLE> keys;
    for (int i = 0; i < 50; ++i) {
        HANDLE key = nullptr;
        ASSERT_EQ(SKF_ImportSessionKey(one.container, SGD_SM4_ECB, blob.data(),
                                       static_cast<ULONG>(blob.size()), &key),
                  SAR_OK);
        keys.push_back(key);
    }
    const Session released = one;
    close(one);
    ULONG type = 0, size = 0;
    for (HANDLE key : keys)
        EXPECT_EQ(SKF_DecryptInit(key, paddingParam(SKF_PKCS7_PADDING)), SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_GetContainerType(released.container, &type), SAR_INVALIDHANDLEERR);
    EXPECT_EQ(SKF_EnumContainer(released.application, nullptr, &size), SAR_INVALIDHANDLEERR);
    // The other device is untouched.
    EXPECT_EQ(SKF_GetContainerType(two.container, &type), SAR_OK);
    close(two);
}
