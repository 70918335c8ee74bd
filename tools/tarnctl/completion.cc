#include "tarnctl/help.h"
#include "tarnctl/options.h"

#include <algorithm>

namespace tarnctl {

namespace {

void offer(std::vector<std::string> &words, std::string_view word) {
    words.emplace_back(word);
}

void offer_values(std::vector<std::string> &words, const Argument &argument, const Known &known,
                  const Subcommand &row) {
    for (const Choice &choice : argument.choices)
        offer(words, choice.word);
    if (argument.kind == Kind::interface || argument.name == "PORT")
        words.insert(words.end(), known.interfaces.begin(), known.interfaces.end());
    if (row.action == Action::redirect || row.file == "hidecounter")
        words.insert(words.end(), known.redirects.begin(), known.redirects.end());
    if (argument.kind == Kind::on_off)
        words.insert(words.end(), {"on", "off"});
    if (argument.kind == Kind::instances)
        offer(words, "all");
    if (argument.kind == Kind::ports || argument.kind == Kind::rules || argument.kind == Kind::bits)
        offer(words, "none");
}

// The words of the row and the arguments that have been said do not come again.
std::vector<std::string> arguments_after(const Subcommand &row, const Words &said,
                                         const Known &known) {
    std::vector<std::string> words;
    const std::string before = said.empty() ? "" : said.back();
    std::size_t places = said.size();
    for (const Argument &argument : row.arguments) {
        if (!argument.word.empty() && argument.word == before) {
            offer_values(words, argument, known, row);
            return words;
        }
        if (!argument.word.empty() && std::count(said.begin(), said.end(), argument.word))
            places -= std::min<std::size_t>(places, 2);
        if (argument.kind == Kind::flags)
            for (const Choice &choice : argument.choices)
                places -= std::min<std::size_t>(places,
                                                std::count(said.begin(), said.end(), choice.word));
    }
    for (const Argument &argument : row.arguments) {
        if (argument.kind == Kind::flags) {
            for (const Choice &choice : argument.choices)
                if (!std::count(said.begin(), said.end(), choice.word))
                    offer(words, choice.word);
        } else if (!argument.word.empty()) {
            if (!std::count(said.begin(), said.end(), argument.word))
                offer(words, argument.word);
        } else if (!argument.name.empty()) {
            if (places == 0)
                offer_values(words, argument, known, row);
            places--; // only the place that is reached is 0
        }
    }
    return words;
}

// The words of the table stand in the script itself; for arguments it asks the tool.
constexpr std::string_view SCRIPT = R"bash(# bash completion for tarnctl
_tarnctl_rows='@ROWS@'

_tarnctl() {
    local current=${COMP_WORDS[COMP_CWORD]} words=() line rest at
    for ((at = 1; at < COMP_CWORD; at++)); do
        case ${COMP_WORDS[at]} in
        --batch | --socket | --proc | --control) ((at++)) ;;
        -*) ;;
        *) words+=("${COMP_WORDS[at]}") ;;
        esac
    done
    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W '@OPTIONS@' -- "$current"))
        return
    fi
    line="${words[*]}"
    [[ -z $line ]] || line+=' '
    COMPREPLY=()
    while read -r rest; do
        [[ $rest == "$line"* ]] || continue
        rest=${rest#"$line"}
        rest=${rest%% *}
        [[ -z $rest || $rest != "$current"* || " ${COMPREPLY[*]} " == *" $rest "* ]] ||
            COMPREPLY+=("$rest")
    done <<<"$_tarnctl_rows"
    if [[ ${#COMPREPLY[@]} -eq 0 ]]; then
        rest=$("${COMP_WORDS[0]}" --complete "${words[@]}" "$current" 2>/dev/null)
        COMPREPLY=($(compgen -W "$rest" -- "$current"))
    fi
}
complete -F _tarnctl tarnctl
)bash";

void replace(std::string &text, std::string_view mark, const std::string &with) {
    text.replace(text.find(mark), mark.size(), with);
}

} // namespace

std::vector<std::string> complete(const Words &words, const Known &known) {
    if (words.empty())
        return following({});
    Words before(words.begin(), words.end() - 1);
    std::vector<std::string> all = following(before);
    try {
        std::size_t used;
        const Subcommand &row = row_of(before, used);
        Words said(before.begin() + static_cast<std::ptrdiff_t>(used), before.end());
        auto more = arguments_after(row, said, known);
        all.insert(all.end(), more.begin(), more.end());
    } catch (const WordError &) {
    }
    std::erase_if(all, [&](const std::string &one) { return !one.starts_with(words.back()); });
    return all;
}

std::string completion_script() {
    std::string rows, flags;
    for (const Subcommand &row : subcommands())
        rows += std::string(rows.empty() ? "" : "\n") + std::string(row.words);
    for (const Option &option : options())
        flags += std::string(flags.empty() ? "" : " ") + std::string(option.word);
    std::string script(SCRIPT);
    replace(script, "@ROWS@", rows);
    replace(script, "@OPTIONS@", flags);
    return script;
}

} // namespace tarnctl
