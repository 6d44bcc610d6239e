#include "doctor/Bundle.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "client/Failure.h"
#include "common/Version.h"
#include "doctor/Service.h"
#include "doctor/ToolOutput.h"

namespace tavrik {

namespace {

constexpr const char* kFolder = "tavrik-doctor/";

struct Deleter {
    void operator()(archive* object) const { archive_write_free(object); }
    void operator()(archive_entry* object) const { archive_entry_free(object); }
};
using Archive = std::unique_ptr<archive, Deleter>;
using Entry = std::unique_ptr<archive_entry, Deleter>;

void Check(int result, const Archive& file, const std::string& path) {
    if (result != ARCHIVE_OK) {
        const char* const reason = archive_error_string(file.get());
        throw Failure(ExitStatus::Failed,
                      "failed to write " + path + ": " + (reason == nullptr ? "" : reason));
    }
}

/// An existing file would keep its mode.
void RestrictToOwner(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0) {
        throw Failure(ExitStatus::Failed,
                      "failed to write " + path + ": " + std::generic_category().message(errno));
    }
}

std::string VersionsText(const Doctor& doctor) {
    const std::string& daemon = doctor.DaemonVersion();
    return "tavrikctl " TAVRIK_VERSION "\nTavrikDaemon " +
           (daemon.empty() ? "does not answer" : daemon) + "\n" + RunTool({"uname", "-srvm"}).text +
           RunTool({"cat", "/etc/os-release"}).text +
           RunTool({"dpkg-query", "--show", "tavrikdaemon", "pellix-sim", "modemmanager",
                    "libudev1", "libxmlrpc-c++8v5", "systemd", "udev"})
               .text;
}

std::string ServiceText() {
    return RunTool({"systemctl", "status", "--no-pager", "--lines=0", kServiceName}).text +
           RunTool({"systemctl", "cat", "--no-pager", kServiceName}).text;
}

std::string LogText() {
    return RunTool({"journalctl", "--unit", kServiceName, "--lines=2000", "--no-pager",
                    "--no-hostname", "--output=short-iso"})
        .text;
}

}  // namespace

void WriteBundle(const std::string& path, const Doctor& doctor, BundleFiles files) {
    files.emplace_back("versions.txt", VersionsText(doctor));
    if (doctor.HasCheckedMachine()) {
        files.emplace_back("service.txt", ServiceText());
        files.emplace_back("log.txt", LogText());
    }
    const Archive file(archive_write_new());
    archive_write_add_filter_gzip(file.get());
    archive_write_set_format_pax_restricted(file.get());
    RestrictToOwner(path);
    const mode_t oldMask = umask(S_IRWXG | S_IRWXO);
    const int opened = archive_write_open_filename(file.get(), path.c_str());
    umask(oldMask);
    Check(opened, file, path);
    for (const auto& [name, text] : files) {
        const Entry entry(archive_entry_new());
        archive_entry_set_pathname(entry.get(), (kFolder + name).c_str());
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(text.size()));
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        archive_entry_set_perm(entry.get(), S_IRUSR | S_IWUSR);
        archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
        Check(archive_write_header(file.get(), entry.get()), file, path);
        if (archive_write_data(file.get(), text.data(), text.size()) < 0) {
            Check(ARCHIVE_FATAL, file, path);
        }
    }
    Check(archive_write_close(file.get()), file, path);
}

}  // namespace tavrik
