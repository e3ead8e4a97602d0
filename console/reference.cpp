#include "console/reference.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

#include "console/embedded.h"

namespace modla::console {

namespace {

// What the paragraph under the title says first.
std::string summary_of(const std::string &text) {
    const size_t begin = text.find("\n\n") + 2;
    std::string paragraph = text.substr(begin, text.find("\n\n", begin) - begin);
    std::replace(paragraph.begin(), paragraph.end(), '\n', ' ');
    size_t end = paragraph.find_last_not_of(". ") + 1;
    for (const char *stop : {". ", "; ", ", and "}) end = std::min(end, paragraph.find(stop));
    return paragraph.substr(0, end);
}

std::vector<ReferenceEntry> read_entries() {
    std::vector<ReferenceEntry> entries;
    bool inside = false;
    std::istringstream text(modla_reference);
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("#")) inside = line.starts_with("### ");
        if (!inside) continue;
        if (line.starts_with("### ")) {
            line.erase(0, 4);
            entries.push_back({line.substr(0, line.find('(')), line, "", ""});
        }
        entries.back().text += line + "\n";
    }
    for (ReferenceEntry &entry : entries) {
        entry.text.erase(entry.text.find_last_not_of('\n') + 1);
        entry.summary = summary_of(entry.text);
    }
    return entries;
}

// The number of letters to change, insert or leave out, two neighbours exchanged counting as one.
size_t distance(const std::string &a, const std::string &b) {
    std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); i++) {
        for (size_t j = 0; j <= b.size(); j++) {
            if (i == 0 || j == 0) {
                d[i][j] = i + j;
                continue;
            }
            const bool same = std::tolower(a[i - 1]) == std::tolower(b[j - 1]);
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + !same});
            const bool exchanged = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (exchanged) d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

}  // namespace

const std::vector<ReferenceEntry> &reference() {
    static const auto *const entries = new std::vector<ReferenceEntry>(read_entries());
    return *entries;
}

const ReferenceEntry *find_reference(const std::string &name) {
    for (const ReferenceEntry &entry : reference()) {
        if (entry.name == name) return &entry;
    }
    return nullptr;
}

std::string messages_of(const std::string &name) {
    const std::string_view header = modla_header, first = "\n *   \"";
    const size_t declaration = header.find("modLA_" + name + "(const HostApi");
    if (declaration == header.npos) return "";
    const size_t end = header.rfind(" */", declaration), begin = header.find(first, header.rfind("/*", end));
    if (begin >= end) return "";
    std::istringstream lines(std::string(header.substr(begin + 1, end - begin - 1)));
    std::string result = "\n\nMessages:\n";
    for (std::string line; std::getline(lines, line);)
        result += "    " + line.substr(std::min<size_t>(5, line.size())) + "\n";
    result.pop_back();
    return result;
}

std::string nearest_function(const std::string &name) {
    const ReferenceEntry *best = nullptr;
    size_t least = std::min<size_t>(3, name.size() / 3 + 1);
    for (const ReferenceEntry &entry : reference()) {
        const size_t changes = name.size() < 40 ? distance(name, entry.name) : least;
        if (changes >= least) continue;
        least = changes;
        best = &entry;
    }
    return best ? ", did you mean " + best->name + "?" : "";
}

std::string describe_functions() {
    std::string result;
    for (const ReferenceEntry &entry : reference()) {
        const size_t width = entry.call.size();
        result += entry.call + (width < 40 ? std::string(40 - width, ' ') : "\n" + std::string(40, ' ')) +
                  entry.summary + "\n";
    }
    return result;
}

}  // namespace modla::console
