#!/usr/bin/env bash
# test/doc_examples.sh [TEST...]: checks that the documentation shows what
# the tests run, so that its examples cannot drift from lavrel's behaviour.
#
# Every example in doc/*.md is a fenced ```psql block right below a marker
# naming the pg_regress case it comes from:
#
#     <!-- example: doc_concepts -->
#     ```psql
#     SELECT lavrel.label_to_char(320);
#     ...
#     ```
#
# The block must appear, line for line, in test/expected/<case>.out (trailing
# blanks aside), and the case must be one that test/run.sh runs: listed in
# test/schedule, or named as an argument (the cases run.sh runs outside the
# schedule).  A psql block without a marker, or a marker without a block,
# is an error.  doc/reference.md must also have a section, and an example,
# for every function that sql/lavrel--1.1.sql creates, and
# doc/troubleshooting.md an entry for every message of lavrel that a test
# shows.
#
# Prints one "ok" or "not ok" line per page and per check, and the
# problems found as "#" lines; exits non-zero when anything failed.
set -euo pipefail
cd "$(dirname "$0")/.."

cases=" $(sed -n 's/^test: //p' test/schedule | tr '\n' ' ') $* "
failed=0
reference_examples=$(mktemp)
trap 'rm -f "$reference_examples"' EXIT

# report DESCRIPTION PROBLEMS: one result line, and the problems if any.
report() {
    if [ -z "$2" ]; then
        echo "ok - $1"
    else
        echo "not ok - $1"
        printf '%s\n' "$2" | sed 's/^/# /'
        failed=1
    fi
}

# check_page PAGE EXAMPLES: prints the problems of the page's examples and
# writes their text to the file EXAMPLES.
check_page() {
    awk -v cases="$cases" -v page="$1" -v examples="$2" '
        function rstrip(s) { sub(/[ \t\r]+$/, "", s); return s }
        function expected_text(name,    file, line, text) {
            if (name in loaded) return loaded[name]
            file = "test/expected/" name ".out"
            text = "\n"
            while ((getline line < file) > 0) text = text rstrip(line) "\n"
            close(file)
            loaded[name] = text
            return text
        }
        function problem(msg) { print page ":" start ": " msg; bad = 1 }
        {
            line = rstrip($0)
        }
        inblock && line == "```" {
            inblock = 0
            if (text == "\n")
                problem("empty example")
            else if (index(cases, " " name " ") == 0)
                problem("test case \"" name "\" is not run by test/run.sh")
            else if (index(expected_text(name), text) == 0)
                problem("example not found in test/expected/" name ".out")
            printf "%s", text >> examples
            next
        }
        inblock { text = text line "\n"; next }
        marker {
            marker = 0
            if (line != "```psql") { problem("example marker without a psql block"); next }
            inblock = 1; text = "\n"; next
        }
        match(line, /^<!-- example: [A-Za-z0-9_]+ -->$/) {
            name = substr(line, 15, length(line) - 18)
            marker = 1; start = NR; next
        }
        line == "```psql" { start = NR; problem("psql block without an example marker") }
        END {
            if (inblock || marker) problem("example not closed")
            exit bad
        }
    ' "$1"
}

for page in doc/*.md; do
    grep -qE '^(<!-- example: |```psql)' "$page" || continue
    out=/dev/null
    [ "$page" = doc/reference.md ] && out=$reference_examples
    problems=$(check_page "$page" "$out" || true)
    count=$(grep -c '^<!-- example: ' "$page" || true)
    report "$page: $count examples, each as its test runs it" "$problems"
done

problems=""
# A planner support function (its argument is internal) has a section but
# no example: SQL cannot call it.
for fn in $(sed -n 's/^CREATE FUNCTION lavrel\.\([a-z_]*\)(.*/\1/p' sql/lavrel--1.1.sql | sort -u); do
    grep -sqE "^#+ .*\b$fn\(" doc/reference.md ||
        problems="$problems${problems:+$'\n'}doc/reference.md: no section for lavrel.$fn"
    grep -q "^CREATE FUNCTION lavrel\.$fn(internal)" sql/lavrel--1.1.sql ||
        grep -q "lavrel\.$fn(" "$reference_examples" ||
        problems="$problems${problems:+$'\n'}doc/reference.md: no example calls lavrel.$fn"
done
report "doc/reference.md: every function of sql/lavrel--1.1.sql has a section and an example" "$problems"

# The message formats of lavrel, one a line: every lower-case string literal
# of the sources that contains a blank, and the exceptions the install
# script raises.  Literals that are no message never make up a whole
# message line of a test's output, and so drop out below.
lavrel_messages() {
    sed 's#//.*##' src/*.cpp src/host/*.cpp | grep -o '"[a-z][^"\\]*\(\\.[^"\\]*\)*"' | grep ' ' |
        sed 's/^"//; s/"$//; s/\\"/"/g'
    grep -o "RAISE EXCEPTION '[^']*'" sql/lavrel--1.1.sql | sed "s/^RAISE EXCEPTION '//; s/'$//; s/%/%s/g"
}

# A message format as an extended regular expression: what %s, %d and %u
# stand for matches anything.
message_regex() {
    printf '%s' "$1" | sed 's/[][\.*^$+?(){}|/]/\\&/g; s/%[sdu]/.+/g'
}

# Every message the tests show (as psql prints an error, a warning or a
# notice, or as try_stmt() reports one) has an entry in troubleshooting.md.
problems=""
while IFS= read -r fmt; do
    re=$(message_regex "$fmt")
    grep -hqE "(^(ERROR|WARNING|NOTICE):  |[|] [0-9A-Z]{5}: )$re *(\$|[|])" test/expected/*.out || continue
    grep -qE "$re" doc/troubleshooting.md ||
        problems="$problems${problems:+$'\n'}doc/troubleshooting.md: no entry for \"$fmt\""
done < <(lavrel_messages | sort -u)
report "doc/troubleshooting.md: every message of lavrel that the tests show has an entry" "$problems"
exit "$failed"
