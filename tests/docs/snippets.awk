# Turns pages of the cookbook into one source file: a function for each page, in a namespace of its own. Blocks that
# begin with #include stand before the function, all others are its body, in their order. A whole program is no snippet:
# it is built by itself.
FNR == 1 {
    finish_page()
    page = FILENAME
    sub(/.*\//, "", page)
    sub(/\.md$/, "", page)
    space = page
    gsub(/-/, "_", space)
}
/^```/ {
    if (inside) finish_block()
    else if ($0 == "```cpp") { inside = 1; block = ""; place = "\n#line " (FNR + 1) " \"" FILENAME "\"\n" }
    next
}
!inside { next }
block == "" { top = /^#include/ }
/^#include/ { if (!seen[$0]++) includes = includes $0 "\n"; $0 = "" }
/^TEST/ { tested[page] = 1 }
/^int main\(/ { program = 1 }
{ block = block $0 "\n" }
END {
    finish_page()
    print includes "#include \"tests/docs/Page.h\"\n" pages
    print "const std::map<std::string, Page> pages{" table "};"
}
function finish_block() {
    if (program) block = ""
    else if (top) before = before place block
    else body = body place block
    inside = program = 0
}
function finish_page() {
    if (page == "" || before == "") return
    pages = pages "namespace page_" space " {\n" before "\nvoid run([[maybe_unused]] tarntesting::TestService& service, " \
        "[[maybe_unused]] connector::host::Tarn& tarn,\n         [[maybe_unused]] connector::host::TarnHost& host)\n{\n" \
        body "}\n} // namespace\n"
    table = table "\n    {\"" page "\", {page_" space "::run, " (tested[page] ? "true" : "false") "}},"
    before = body = ""
}
