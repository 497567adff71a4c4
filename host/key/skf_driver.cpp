#include "key/skf_driver.h"

#include <dlfcn.h>

namespace zthost {

namespace {

template <typename Fn>
bool resolve(void *handle, const char *name, const QString &path, Fn *out, QString *error)
{
    void *symbol = dlsym(handle, name);
    if (!symbol) {
        if (error)
            *error = QStringLiteral("symbol %1 missing in smart-key driver %2")
                         .arg(QLatin1String(name), path);
        return false;
    }
    *out = reinterpret_cast<Fn>(symbol);
    return true;
}

} // namespace

std::unique_ptr<SkfDriver> SkfDriver::load(const QString &path, QString *error)
{
    const QByteArray file = path.toLocal8Bit();
    void *handle = dlopen(file.constData(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        const char *reason = dlerror();
        if (error)
            *error = QStringLiteral("cannot load smart-key driver %1: %2")
                         .arg(path, reason ? QString::fromLocal8Bit(reason)
                                           : QStringLiteral("unknown reason"));
        return nullptr;
    }

    std::unique_ptr<SkfDriver> driver(new SkfDriver);
    driver->m_path = path;
    driver->m_handle = handle;
    SkfFunctions &f = driver->m_functions;
#define ZT_RESOLVE(name) resolve(handle, "SKF_" #name, path, &f.name, error)
    const bool complete = ZT_RESOLVE(EnumDev) && ZT_RESOLVE(ConnectDev) && ZT_RESOLVE(DisConnectDev)
                          && ZT_RESOLVE(EnumApplication) && ZT_RESOLVE(OpenApplication)
                          && ZT_RESOLVE(CloseApplication) && ZT_RESOLVE(VerifyPIN)
                          && ZT_RESOLVE(ClearSecureState) && ZT_RESOLVE(EnumContainer)
                          && ZT_RESOLVE(OpenContainer) && ZT_RESOLVE(CloseContainer)
                          && ZT_RESOLVE(GetContainerType) && ZT_RESOLVE(ExportCertificate)
                          && ZT_RESOLVE(ImportSessionKey) && ZT_RESOLVE(DecryptInit)
                          && ZT_RESOLVE(Decrypt) && ZT_RESOLVE(CloseHandle);
#undef ZT_RESOLVE
    if (!complete)
        return nullptr;
    // Not needed to drive a key, so a driver without them still loads.
    f.GetPINInfo = reinterpret_cast<decltype(f.GetPINInfo)>(dlsym(handle, "SKF_GetPINInfo"));
    f.ChangePIN = reinterpret_cast<decltype(f.ChangePIN)>(dlsym(handle, "SKF_ChangePIN"));
    f.UnblockPIN = reinterpret_cast<decltype(f.UnblockPIN)>(dlsym(handle, "SKF_UnblockPIN"));
    f.GetDevInfo = reinterpret_cast<decltype(f.GetDevInfo)>(dlsym(handle, "SKF_GetDevInfo"));
    return driver;
}

QString SkfDriver::missingText(const char *name) const
{
    return QStringLiteral("smart-key driver %1 has no %2").arg(m_path, QLatin1String(name));
}

SkfDriver::~SkfDriver()
{
    if (m_handle)
        dlclose(m_handle);
}

} // namespace zthost
