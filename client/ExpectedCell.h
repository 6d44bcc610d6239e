#pragma once

#include <string>
#include <vector>

namespace tavrik {

/// The grippers that a cell should have, as device strings.
class ExpectedCell {
public:
    struct Difference {
        enum class Kind {
            Missing,
            New,
            Exchanged,  ///< one of a product is missing, and one of the same product is new
        };
        Kind kind;
        std::string expected;  ///< empty if new
        std::string found;     ///< empty if missing

        /// In words, as in "is missing".
        std::string Text() const;

        /// "missing", "new" or "exchanged".
        std::string Word() const;
    };

    explicit ExpectedCell(std::vector<std::string> grippers);

    /// @throws Failure (Usage) if the file `path` is anything but a cell file
    static ExpectedCell FromFile(const std::string& path);

    /// The content of a cell file, for FromFile(): stable, whatever the order of the grippers.
    std::string FileText() const;

    /// The differences between the grippers `found` and the expected ones, by name. A name may
    /// occur more than once.
    std::vector<Difference> Compare(std::vector<std::string> found) const;

    std::size_t Count() const { return grippers.size(); }

private:
    std::vector<std::string> grippers;  // sorted
};

}  // namespace tavrik
