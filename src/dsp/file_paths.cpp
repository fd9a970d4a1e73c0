#include "dsp/file_paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace qs {

long get_file_size(FILE* file) {
    if (!file) return 0;
    const long here = std::ftell(file);
    std::fseek(file, 0, SEEK_END);
    const long size = std::ftell(file);
    std::fseek(file, here, SEEK_SET);
    return size;
}

bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

namespace {

bool MakeDirectory(const char* path) {
    struct stat st;
    if (stat(path, &st) == 0) return true;
    return mkdir(path, 0777) == 0;
}

}  // namespace

const char* getAppDataPath() {
    static char cached[256];
    static bool filled = false;
    if (filled) return cached;
    const passwd* pw = getpwuid(getuid());
    if (!pw || !pw->pw_dir) return nullptr;
    char path[sizeof cached];
    const int n = std::snprintf(path, sizeof path, "%s/.corvane", pw->pw_dir);
    if (n < 0 || n >= static_cast<int>(sizeof path)) return nullptr;
    if (!MakeDirectory(path)) return nullptr;
    std::memcpy(cached, path, sizeof cached);
    filled = true;
    return cached;
}

const char* get_app_data_path() {
    static const char kPath[] = "~/.corvane";
    return MakeDirectory(kPath) ? kPath : nullptr;
}

std::string getCorrectionFilePath() {
    // $HOME when it is set, as every other program the user runs takes it
    // (so a sandbox, a service account or a test can move it), else the
    // password database's home through getAppDataPath.
    std::string base;
    if (const char* home = std::getenv("HOME"); home && *home) {
        base = std::string(home) + "/.corvane";
        if (!MakeDirectory(base.c_str())) return std::string();
    } else if (const char* data = getAppDataPath()) {
        base = data;
    } else {
        return std::string();
    }
    std::string path = base + "/cal_files/";
    MakeDirectory(path.c_str());
    return path;
}

}  // namespace qs
