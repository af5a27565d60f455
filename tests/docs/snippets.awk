# Turns pages of the cookbook into one source file: a function for each page, in a namespace of its own. Blocks that
# begin with #include stand before the function, all others are its body, in their order.
FNR == 1 {
    finish_page()
    page = FILENAME
    sub(/.*\//, "", page)
    sub(/\.md$/, "", page)
    space = page
    gsub(/-/, "_", space)
}
/^```/ {
    if (inside) { inside = 0; next }
    inside = $0 == "```cpp"
    first = 1
    next
}
!inside { next }
first { top = /^#include/; first = 0; place = "\n#line " FNR " \"" FILENAME "\"\n" }
/^#include/ { if (!seen[$0]++) includes = includes $0 "\n"; next }
/^TEST/ { tested[page] = 1 }
top { before = before place $0 "\n"; place = "" }
!top { body = body place $0 "\n"; place = "" }
END {
    finish_page()
    print includes "#include \"tests/docs/Page.h\"\n" pages
    print "const std::map<std::string, Page> pages{" table "};"
}
function finish_page() {
    if (page == "" || before == "") return
    pages = pages "namespace page_" space " {\n" before "\nvoid run([[maybe_unused]] tarntesting::TestService& service, " \
        "[[maybe_unused]] connector::host::Tarn& tarn,\n         [[maybe_unused]] connector::host::TarnHost& host)\n{\n" \
        body "}\n} // namespace\n"
    table = table "\n    {\"" page "\", {page_" space "::run, " (tested[page] ? "true" : "false") "}},"
    before = body = ""
}
