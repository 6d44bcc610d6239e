#include "client/ExpectedCell.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/Failure.h"
#include "client/JsonFile.h"
#include "client/Printable.h"

namespace tavrik {

namespace {

using Json = nlohmann::json;
using Difference = ExpectedCell::Difference;
using Names = std::vector<std::string>;

constexpr const char* kCellFormat = "TavrikDaemon cell";
constexpr int kCellVersion = 1;

std::string Product(const std::string& device) {
    return device.substr(0, device.rfind(" SN:"));
}

/// The names of `all` that `others` lacks; both are sorted.
Names Without(const Names& all, const Names& others) {
    Names rest;
    std::ranges::set_difference(all, others, std::back_inserter(rest));
    return rest;
}

/// The only one of `devices` that is a `product`, otherwise an empty text.
std::string OnlyOf(const std::string& product, const Names& devices) {
    const auto isOne = [&](const std::string& device) { return Product(device) == product; };
    return std::ranges::count_if(devices, isOne) == 1 ? *std::ranges::find_if(devices, isOne) : "";
}

}  // namespace

std::string Difference::Text() const {
    switch (kind) {
        case Kind::Missing:
            return "is missing";
        case Kind::New:
            return "is new";
        default:
            return "is in the place of '" + Printable(expected) + "'";
    }
}

std::string Difference::Word() const {
    return kind == Kind::Missing ? "missing" : kind == Kind::New ? "new" : "exchanged";
}

ExpectedCell::ExpectedCell(Names grippers) : grippers(std::move(grippers)) {
    std::ranges::sort(this->grippers);
}

ExpectedCell ExpectedCell::FromFile(const std::string& path) {
    const auto invalid = [&](const std::string& reason) {
        return Failure(ExitStatus::Usage, path + ": " + reason);
    };
    const Json file = ReadJsonFile(path);
    ExpectFormat(file, path, kCellFormat, kCellVersion);
    const Json list = file.value("grippers", Json());
    if (!list.is_array() || !std::ranges::all_of(list, &Json::is_string)) {
        throw invalid("'grippers' must be an array of device strings");
    }
    constexpr std::size_t kMembers = 3;
    if (file.size() != kMembers) {
        throw invalid("has more than 'format', 'version' and 'grippers'");
    }
    return ExpectedCell(list.get<Names>());
}

std::string ExpectedCell::FileText() const {
    return JsonFileText(
        {{"format", kCellFormat}, {"version", kCellVersion}, {"grippers", grippers}});
}

std::vector<Difference> ExpectedCell::Compare(Names found) const {
    std::ranges::sort(found);
    const Names missing = Without(grippers, found);
    const Names added = Without(found, grippers);
    std::vector<Difference> differences;
    for (const std::string& device : missing) {
        const bool isOnly = OnlyOf(Product(device), missing) == device;
        const std::string other = isOnly ? OnlyOf(Product(device), added) : "";
        differences.push_back(
            {other.empty() ? Difference::Kind::Missing : Difference::Kind::Exchanged, device,
             other});
    }
    for (const std::string& device : added) {
        if (std::ranges::find(differences, device, &Difference::found) == differences.end()) {
            differences.push_back({Difference::Kind::New, "", device});
        }
    }
    return differences;
}

}  // namespace tavrik
