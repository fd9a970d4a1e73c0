// Files and the per-user data directory, where calibration caches live.
//
// Reentrant, except getAppDataPath, whose cache has no lock (it is called
// on the open path, one thread at a time).
#pragma once

#include <cstdio>
#include <string>

namespace qs {

// Size by seeking to the end and back; 0 for a null file.
long get_file_size(FILE* file);
bool fileExists(const std::string& path);

// "<home>/.corvane", home from the password database; made with mode 0777
// if missing. Cached after the first success; null if it cannot be made.
const char* getAppDataPath();
// The constant "~/.corvane", unexpanded, if that path exists or can be
// made; else null.
const char* get_app_data_path();
// "<home>/.corvane/cal_files/", made on the way, home being $HOME when set
// and else getAppDataPath()'s; empty if the directory is unavailable.
std::string getCorrectionFilePath();

}  // namespace qs
