# Makes a shell's completion of a program from its manual page.
#
# usage: awk -v shell=bash|zsh|none -v program=NAME -f Tools/completion.awk PAGE
#
# Without a shell it lists what it has found, a command and an option on each line.
#
# A command is a subsection of the section COMMANDS; programs without that section have one, with an empty name. An
# option is a list item of "Fl Fl NAME"; one with "Ar" takes a value. A comment 'values: ...' tells what the value, or
# before the first option the argument of the command, may be; FILE stands for files.

BEGIN { command = ""; count = 0 }

/^\.Sh / { section = $2; next }

/^\.Ss / && section == "COMMANDS" {
    command = $2
    for (i = 3; i <= NF && $i !~ /^(Ar|Op)$/; ++i)
        command = command " " $i
    commands[++count] = command
    option = ""
    wants = "command"
    next
}

/^\.It Fl / {
    option = ""
    wants = "option"
    for (i = 2; i <= NF; ++i)
        if ($i == "Fl" && $(i + 1) == "Fl")
            option = option " --" $(i + 2)
    takes = / Ar /
    names = split(option, found, " ")
    for (i = 1; i <= names; ++i) {
        options[command] = options[command] " " found[i]
        value[command, found[i]] = takes ? "-" : ""
    }
    next
}

/^\.\\" values: / {
    sub(/^\.\\" values: /, "")
    if (option == "")
        argument[command] = $0
    for (i = 1; i <= names && option != ""; ++i)
        value[command, found[i]] = $0
    next
}

/more than once|may be repeated/ && option != "" {
    for (i = 1; i <= names; ++i)
        repeats[command, found[i]] = "*"
}

# The first line of text behind a title or an option is its description.
wants != "" && !/^\./ {
    if (wants == "command")
        about[command] = $0
    for (i = 1; i <= names && wants == "option"; ++i)
        about[command, found[i]] = $0
    wants = ""
}

END {
    if (count == 0)
        commands[++count] = ""
    if (shell == "bash")
        bash()
    else if (shell == "zsh")
        zsh()
    else
        list()
}

function list(    i, j, n, parts) {
    for (i = 1; i <= count; ++i) {
        n = split(options[commands[i]], parts, " ")
        for (j = 1; j <= n; ++j)
            print commands[i] (commands[i] == "" ? "" : " ") parts[j]
    }
}

function words(values,    result, parts, n, i) {
    n = split(values, parts, " ")
    for (i = 1; i <= n; ++i)
        if (parts[i] != "FILE" && parts[i] != "-")
            result = result (result == "" ? "" : " ") parts[i]
    return result
}

function hasFiles(values) { return (" " values " ") ~ / FILE / }

# First words of the commands, each once.
function firstWords(    result, seen, parts, i) {
    for (i = 1; i <= count; ++i) {
        split(commands[i], parts, " ")
        if (!(parts[1] in seen))
            result = result (result == "" ? "" : " ") parts[1]
        seen[parts[1]] = 1
    }
    return result
}

# Second words of the commands that begin with a word.
function secondWords(first,    result, parts, i) {
    for (i = 1; i <= count; ++i)
        if (split(commands[i], parts, " ") == 2 && parts[1] == first)
            result = result (result == "" ? "" : " ") parts[2]
    return result
}

function answer(indent, values,    line) {
    line = indent "COMPREPLY=($(compgen "
    if (hasFiles(values))
        line = line "-f "
    return line "-W '" words(values) "' -- \"$word\"))"
}

function bash(    i, j, n, parts, seen) {
    print "# Completion of " program " for bash."
    print "_" program "() {"
    print "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command= index"
    print "    for ((index = 1; index < COMP_CWORD; ++index)); do"
    print "        case \"${command:+$command }${COMP_WORDS[index]}\" in"
    for (i = 1; i <= count; ++i) {
        if (commands[i] == "")
            continue
        n = split(commands[i], parts, " ")
        if (n == 2 && !(parts[1] in seen)) {
            print "        \"" parts[1] "\") command=\"" parts[1] "\" ;;"
            seen[parts[1]] = 1
        }
        print "        \"" commands[i] "\") command=\"" commands[i] "\" ;;"
    }
    print "        esac"
    print "    done"
    print "    case \"$command $before\" in"
    for (i = 1; i <= count; ++i) {
        n = split(options[commands[i]], parts, " ")
        for (j = 1; j <= n; ++j)
            if (value[commands[i], parts[j]] != "")
                print "    \"" commands[i] " " parts[j] "\")" answer(" ", value[commands[i], parts[j]]) "; return ;;"
    }
    print "    esac"
    print "    case \"$command\" in"
    for (i = 1; i <= count; ++i)
        print "    \"" commands[i] "\")" answer(" ", options[commands[i]] (commands[i] == "" ? "" : " --help") " " argument[commands[i]]) " ;;"
    for (first in seen)
        print "    \"" first "\")" answer(" ", secondWords(first) " --help") " ;;"
    if (commands[1] != "")
        print "    \"\")" answer(" ", firstWords() " --help") " ;;"
    print "    esac"
    print "}"
    print "complete -o filenames -o bashdefault -F _" program " " program
}

function quoted(text) {
    gsub(/[\[\]:\\]/, "\\\\&", text)
    gsub(/'/, "'\\''", text)
    return text
}

function zshAction(values) {
    if (values == "-")
        return ": "
    if (hasFiles(values) && words(values) == "")
        return "_files"
    return "(" words(values) ")"
}

function zshArguments(indent, command,    n, parts, j, line) {
    line = indent "_arguments"
    n = split(options[command], parts, " ")
    for (j = 1; j <= n; ++j) {
        line = line " \\\n" indent "    '" repeats[command, parts[j]] parts[j] "[" quoted(about[command, parts[j]]) "]"
        if (value[command, parts[j]] != "")
            line = line ":value:" zshAction(value[command, parts[j]])
        line = line "'"
    }
    if (argument[command] != "")
        line = line " \\\n" indent "    '*:argument:" zshAction(argument[command]) "'"
    return line
}

function zsh(    i, n, parts, seen, first, lines) {
    print "#compdef " program
    print "# Completion of " program " for zsh."
    if (commands[1] == "") {
        print zshArguments("", "")
        return
    }
    print "if ((CURRENT == 2)); then"
    print "    _values command \\"
    for (i = 1; i <= count; ++i) {
        split(commands[i], parts, " ")
        if (!(parts[1] in seen))
            lines = lines (lines == "" ? "" : " \\\n") "        '" parts[1] "[" quoted(about[commands[i]]) "]'"
        seen[parts[1]] = 1
    }
    print lines
    print "    return"
    print "fi"
    # _arguments takes the first word for the program, and the ones behind it for its arguments.
    print "shift words; ((--CURRENT))"
    print "local command=$words[1]"
    print "case $command in"
    for (first in seen)
        if (secondWords(first) != "") {
            print first ")"
            print "    ((CURRENT == 2)) && { _values action " secondWords(first) "; return }"
            print "    shift words; ((--CURRENT))"
            print "    command+=\" $words[1]\" ;;"
        }
    print "esac"
    print "case $command in"
    for (i = 1; i <= count; ++i) {
        print "\"" commands[i] "\")"
        print zshArguments("    ", commands[i]) " ;;"
    }
    print "esac"
}
