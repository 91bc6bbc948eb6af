#include "profiler/registry_script.h"

#include <algorithm>
#include <stdexcept>

namespace corvane {
namespace {

struct Word {
    std::wstring text;
    bool quoted = false;
};

class ScriptReader {
public:
    ScriptReader(std::wstring_view script, const std::map<std::wstring, std::wstring>& replacements)
        : script_(script), replacements_(replacements) {
        advance();
    }

    RegistryKey read() {
        expect(L"HKCR");
        RegistryKey root;
        read_block(root);
        if (current_) {
            fail();
        }
        return root;
    }

private:
    // key := [NoRemove] name ["=" "s" text] ["{" (key | "val" name "=" "s" text)* "}"]
    RegistryKey read_key() {
        RegistryKey key;
        key.keep = accept(L"NoRemove");
        key.name = take();
        if (accept(L"=")) {
            key.default_value = read_string();
        }
        if (is(L"{")) {
            read_block(key);
        }
        return key;
    }

    void read_block(RegistryKey& key) {
        expect(L"{");
        while (!accept(L"}")) {
            if (accept(L"val")) {
                std::wstring name = take();
                expect(L"=");
                key.values.emplace_back(std::move(name), read_string());
            } else {
                key.keys.push_back(read_key());
            }
        }
    }

    std::wstring read_string() {
        expect(L"s");
        return take();
    }

    bool is(std::wstring_view word) const {
        return current_ && !current_->quoted && current_->text == word;
    }

    bool accept(std::wstring_view word) {
        const bool found = is(word);
        if (found) {
            advance();
        }
        return found;
    }

    void expect(std::wstring_view word) {
        if (!accept(word)) {
            fail();
        }
    }

    std::wstring take() {
        if (!current_ || is(L"{") || is(L"}") || is(L"=")) {
            fail();
        }
        std::wstring text = replaced(current_->text);
        advance();
        return text;
    }

    // Moves `current_` to the next word, or to nothing at the end.
    void advance() {
        constexpr std::wstring_view kBlanks = L" \t\r\n";
        position_ = std::min(script_.find_first_not_of(kBlanks, position_), script_.size());
        if (position_ == script_.size()) {
            current_.reset();
        } else if (script_[position_] == L'\'') {
            current_ = Word{quoted_text(), true};
        } else {
            const std::size_t end =
                std::min(script_.find_first_of(kBlanks, position_), script_.size());
            current_ = Word{std::wstring(script_.substr(position_, end - position_)), false};
            position_ = end;
        }
    }

    std::wstring quoted_text() {
        std::wstring text;
        for (++position_; position_ < script_.size(); ++position_) {
            if (script_[position_] == L'\'' && script_.substr(position_ + 1, 1) != L"'") {
                ++position_;
                return text;
            }
            position_ += script_[position_] == L'\'' ? 1 : 0;
            text += script_[position_];
        }
        throw std::runtime_error("registry script: a quote is not closed");
    }

    std::wstring replaced(const std::wstring& text) const {
        std::wstring result;
        std::size_t position = 0;
        for (;;) {
            const std::size_t open = text.find(L'%', position);
            const std::size_t close = open == std::wstring::npos ? open : text.find(L'%', open + 1);
            if (close == std::wstring::npos) {
                return result + text.substr(position);
            }
            const auto found = replacements_.find(text.substr(open + 1, close - open - 1));
            if (found == replacements_.end()) {
                throw std::runtime_error("registry script: unknown replacement");
            }
            result += text.substr(position, open - position) + found->second;
            position = close + 1;
        }
    }

    [[noreturn]] void fail() const {
        std::string word = "the end";
        if (current_) {
            word.clear();
            for (const wchar_t c : current_->text) {
                word += c < 0x80 ? static_cast<char>(c) : '?';
            }
        }
        throw std::runtime_error("registry script: unexpected " + word);
    }

    std::wstring_view script_;
    const std::map<std::wstring, std::wstring>& replacements_;
    std::size_t position_ = 0;
    std::optional<Word> current_;
};

} // namespace

RegistryKey parse_registry_script(std::wstring_view script,
                                  const std::map<std::wstring, std::wstring>& replacements) {
    return ScriptReader(script, replacements).read();
}

} // namespace corvane
