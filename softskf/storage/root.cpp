#include "softskf/provision.h"

#include <cstdlib>

#include <pwd.h>
#include <unistd.h>

namespace softskf {

namespace {
std::string nonEmptyEnv(const char *name)
{
    const char *value = std::getenv(name);
    return value ? std::string(value) : std::string();
}
} // namespace

std::string defaultRoot()
{
    std::string data = nonEmptyEnv("XDG_DATA_HOME");
    if (data.empty()) {
        std::string home = nonEmptyEnv("HOME");
        if (home.empty()) {
            // No HOME (a service, a stripped environment): the password database knows it.
            if (const passwd *entry = ::getpwuid(::getuid()); entry && entry->pw_dir)
                home = entry->pw_dir;
        }
        data = home + "/.local/share";
    }
    return data + "/softskf";
}

std::string rootFromEnvironment()
{
    const std::string root = nonEmptyEnv("SOFTSKF_ROOT");
    return root.empty() ? defaultRoot() : root;
}

} // namespace softskf
