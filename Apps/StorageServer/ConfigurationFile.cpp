#include "ConfigurationFile.h"

#include <fcntl.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace Brantel::Server {

namespace {

[[noreturn]] void FailToRead(const std::string& path) {
    throw std::runtime_error(
        path + ": the settings could not be read: " + std::generic_category().message(errno) +
        "; name another file by --config, or none by --config \"\"");
}

std::string ReadText(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        FailToRead(path);
    }
    std::string text;
    std::array<char, 16384> part{};
    ssize_t size = 0;
    do {
        size = read(file, part.data(), part.size());
        text.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    } while ((size > 0 && text.size() <= ConfigurationFile::sizeLimit) ||
             (size < 0 && errno == EINTR));
    const int error = errno;
    close(file);
    if (size < 0) {
        errno = error;
        FailToRead(path);
    }
    if (text.size() > ConfigurationFile::sizeLimit) {
        throw std::runtime_error(path + ": is over the limit of " +
                                 std::to_string(ConfigurationFile::sizeLimit) + " bytes");
    }
    return text;
}

std::string Place(const std::string& path, const toml::source_region& source) {
    return path + ":" + std::to_string(source.begin.line) + ": ";
}

toml::table Parse(const std::string& path) {
    const std::string text = ReadText(path);
    try {
        return toml::parse(text, path);
    } catch (const toml::parse_error& error) {
        throw std::runtime_error(Place(path, error.source()) + std::string(error.description()));
    }
}

const char* NameOf(Setting::Kind kind) {
    switch (kind) {
        case Setting::Kind::Text: return "a text in quotes";
        case Setting::Kind::Number: return "a whole number";
        case Setting::Kind::Size: return "a number of bytes, or a text as \"2GiB\"";
        case Setting::Kind::Flag: return "true or false";
        case Setting::Kind::List: return "a list of texts in quotes";
    }
    return "";
}

std::string TextOf(const toml::node& node) {
    std::ostringstream text;
    node.visit([&text](const auto& value) { text << value; });
    return text.str();
}

std::optional<Setting::Texts> TextsOf(const toml::node& node, Setting::Kind kind) {
    using Kind = Setting::Kind;
    const bool takesText = kind == Kind::Text || kind == Kind::Size || kind == Kind::List;
    if (const auto* const text = node.as_string(); text != nullptr && takesText) {
        return Setting::Texts{text->get()};
    }
    const bool takesNumber = kind == Kind::Number || kind == Kind::Size;
    if (const auto* const number = node.as_integer(); number != nullptr && takesNumber) {
        return Setting::Texts{std::to_string(number->get())};
    }
    if (const auto* const flag = node.as_boolean(); flag != nullptr && kind == Kind::Flag) {
        return Setting::Texts{flag->get() ? "true" : "false"};
    }
    const auto* const list = node.as_array();
    if (list == nullptr || kind != Kind::List) {
        return std::nullopt;
    }
    Setting::Texts texts;
    for (const toml::node& entry : *list) {
        const auto* const text = entry.as_string();
        if (text == nullptr) {
            return std::nullopt;
        }
        texts.push_back(text->get());
    }
    return texts;
}

std::string Quote(const std::string& text) {
    const toml::value<std::string> value(text);
    std::ostringstream quoted;
    quoted << toml::toml_formatter(
        value, toml::toml_formatter::default_flags & ~toml::format_flags::allow_literal_strings);
    return quoted.str();
}

}  // namespace

std::map<std::string, ConfigurationFile::Value> ConfigurationFile::Read(
    const std::string& path, const std::vector<Setting>& settings) {
    std::map<std::string, Value> values;
    const toml::table table = Parse(path);
    for (const auto& [key, node] : table) {
        const std::string name(key.str());
        const auto setting =
            std::find_if(settings.begin(), settings.end(), [&name](const Setting& candidate) {
                return candidate.key == name && !candidate.isFlagOnly;
            });
        if (setting == settings.end()) {
            throw std::runtime_error(Place(path, key.source()) + "unknown key " + name +
                                     "; --print-example-config shows all there are");
        }
        const std::string written = TextOf(node);
        const std::optional<Setting::Texts> texts = TextsOf(node, setting->kind);
        if (!texts) {
            std::string refusal = Place(path, key.source());
            refusal.append(name).append(" = ").append(written);
            throw std::runtime_error(refusal.append(": must be ").append(NameOf(setting->kind)));
        }
        values[name] = {*texts, static_cast<int>(key.source().begin.line), written};
    }
    return values;
}

std::string ConfigurationFile::Write(const Setting& setting, const Setting::Texts& texts) {
    const bool isBare =
        setting.kind == Setting::Kind::Number || setting.kind == Setting::Kind::Flag;
    if (setting.kind != Setting::Kind::List) {
        const std::string text = texts.empty() ? std::string() : texts.front();
        return isBare ? text : Quote(text);
    }
    std::string list;
    for (const std::string& text : texts) {
        list += (list.empty() ? "" : ", ") + Quote(text);
    }
    return "[" + list + "]";
}

}  // namespace Brantel::Server
