#include "tests/unit/doctor/FakeFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

FakeFolder::FakeFolder() : path(mkdtemp(std::string("/tmp/doctor.XXXXXX").data())) {}

FakeFolder::~FakeFolder() {
    std::error_code error;
    fs::remove_all(path, error);
}

void FakeFolder::Write(const std::string& name, const std::string& text) const {
    const fs::path file = path + "/" + name;
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text;
}

void FakeFolder::Link(const std::string& name, const std::string& target) const {
    const fs::path file = path + "/" + name;
    fs::create_directories(file.parent_path());
    fs::create_symlink(target, file);
}

void FakeFolder::AddProcess(int pid, const std::string& name, const std::string& tty,
                            char state) const {
    const std::string folder = std::to_string(pid);
    Write(folder + "/stat", folder + " (" + name + ") " + state + " 1 1\n");
    fs::create_directories(path + "/" + folder + "/fd");
    if (!tty.empty()) {
        Link(folder + "/fd/3", tty);
    }
}
