// The driver library exports the standard's functions and nothing else.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <string>

TEST(SoftSkfExports, sharedLibraryExportsExactlyTheSkfFunctions)
{
    const std::string command = std::string("nm -D --defined-only ") + ZT_SOFTSKF_LIBRARY;
    std::unique_ptr<FILE, decltype(&pclose)> pipe(popen(command.c_str(), "r"), pclose);
    ASSERT_TRUE(pipe);
    std::set<std::string> symbols;
    char line[512];
    while (std::fgets(line, sizeof line, pipe.get())) {
        std::istringstream fields(line);
        std::string address, type, name;
        fields >> address >> type >> name;
        if (!name.empty())
            symbols.insert(name);
    }
    const std::set<std::string> expected = {
        "SKF_EnumDev",          "SKF_ConnectDev",        "SKF_DisConnectDev",
        "SKF_GetDevInfo",       "SKF_EnumApplication",   "SKF_OpenApplication",
        "SKF_CloseApplication", "SKF_VerifyPIN",         "SKF_GetPINInfo",
        "SKF_ChangePIN",        "SKF_UnblockPIN",
        "SKF_ClearSecureState", "SKF_EnumContainer",     "SKF_OpenContainer",
        "SKF_CloseContainer",   "SKF_GetContainerType",  "SKF_ExportCertificate",
        "SKF_ImportSessionKey", "SKF_DecryptInit",       "SKF_Decrypt",
        "SKF_CloseHandle",
    };
    EXPECT_EQ(symbols, expected);
}
