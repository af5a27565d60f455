#include "cli/machine/Environment.h"
#include "cli/machine/FileText.h"
#include "cli/machine/Process.h"
#include "cli/machine/SystemError.h"
#include "cli/remote/FileAbove.h"
#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/service/ErrorMapping.h"
#include "cli/terminal/Interrupts.h"
#include "cli/terminal/Text.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/Storing.h"
#include "cli/verbs/Verb.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

namespace fs = std::filesystem;
using namespace connector::tarn;

/// The text while it is edited: a file of the same name, so that the editor knows its kind, in a folder that only the
/// user can read. It goes unless it is kept.
class Draft {
public:
    explicit Draft(const std::string& name)
    {
        std::error_code error;
        const auto folder = fs::temp_directory_path(error);
        if (error)
            throw Failure(ExitCode::failure, "There is no folder for temporary files: " + error.message() +
                                                 ". Set TMPDIR to one.");
        auto folderName = (folder / "tarn-edit-XXXXXX").string();
        if (mkdtemp(folderName.data()) == nullptr) throwErrno("Could not make", folderName);
        file = fs::path(folderName) / name;
    }

    ~Draft()
    {
        std::error_code ignored;
        if (!kept) fs::remove_all(file.parent_path(), ignored);
    }

    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    void write(std::string_view text) const
    {
        std::ofstream out(file, std::ios::binary);
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.close();
        if (!out) throwErrno("Could not write", file);
    }

    /// Empty when the editor left no file.
    std::string read() const { return exists() ? readFile(file) : ""; }

    bool exists() const { return fs::exists(file); }

    /// The failure, with where the user's work is.
    Failure keep(const Failure& failure)
    {
        kept = true;
        return failure.saying(std::string(failure.what()) + " Your text is in " + escaped(file.string()) +
                              ".");
    }

    const std::string& path() const { return file.native(); }

private:
    /// Nothing of the user's work is removed then.
    void tellOnInterrupt() const
    {
        std::error_code error;
        if (fs::exists(file, error))
            std::fprintf(stderr, "tarn: Your text is in %s.\n", escaped(file.string()).c_str());
        else
            fs::remove(file.parent_path(), error);
    }

    fs::path file;
    bool kept = false;
    InterruptGuard guard{[this] { tellOnInterrupt(); }};
};

std::string editorCommand()
{
    for (const auto* name : {"VISUAL", "EDITOR"})
        if (auto editor = environmentVariable(name); !editor.empty()) return editor;
    return "vi";
}

void runEditor(const std::string& file)
{
    const auto editor = editorCommand();
    // By the shell, since people write `EDITOR="code --wait"`.
    const int code = process::runAtTerminal({"/bin/sh", "-c", editor + " \"$1\"", editor, file});
    if (code == 0) return;
    throw Failure(ExitCode::failure, "The editor `" + escaped(editor) + "` ended with exit code " +
                                         std::to_string(code) +
                                         "; nothing was stored. Set EDITOR to choose another.");
}

/// A file as it was, or that there was none.
struct Seen {
    std::optional<FileAttributes> attributes;
    std::string content;

    bool isSame(const std::optional<FileAttributes>& now) const
    {
        if (!attributes || !now) return !attributes && !now;
        return attributes->watermark == now->watermark && attributes->size == now->size &&
               attributes->lastModified == now->lastModified;
    }
};

Seen look(Connection& connection, const RemotePath& file)
{
    Seen seen{findAttributes(connection, file), ""};
    if (!seen.attributes) return seen;
    if (isFolder(*seen.attributes)) throw Failure(ExitCode::conflict, file.quoted() + " is a folder.");
    seen.content = readContent(connection, file, {});
    return seen;
}

Failure changedMeanwhile(const RemotePath& file)
{
    return {ExitCode::conflict, file.quoted() + " has changed while you edited it; nothing was stored."};
}

/// As a new version, with its SHA-256, so that the service stores nothing else, and only while the file is what was
/// edited.
Transfer transferOf(Connection& connection, const Upload& upload)
{
    auto transfer =
        storing(connection, upload, {.existing = Existing::addVersion, .before = upload.ifVersion});
    transfer.what = upload.remote.quoted();
    transfer.failed = [remote = upload.remote,
                       failed = std::move(transfer.failed)](const std::exception_ptr& error) {
        try {
            failed(error);
        } catch (const std::exception&) {
            const auto final = std::current_exception();
            if (isRefusal(final, reasons::contentChanged) || isRefusal(final, reasons::fileExists))
                throw changedMeanwhile(remote);
            throw;
        }
    };
    return transfer;
}

void store(const Invocation& invocation, Connection& connection, const RemotePath& file, const Seen& before,
           const Draft& draft)
{
    Upload upload{fs::path(draft.path()), file, fs::file_size(draft.path())};
    if (before.attributes) {
        upload.existing = StoredFile{before.attributes->watermark, before.attributes->size};
        upload.ifVersion = naming(file, [&] { return currentOf(connection, file).version; });
    }
    if (!before.isSame(findAttributes(connection, file))) throw changedMeanwhile(file);
    upload.sha256 = digestOfOrigin(connection, upload);
    Transfers transfers(connection, invocation.out);
    transfers.add(transferOf(connection, upload));
    conclude(transfers.run(), "stored");
}

void editFile(const Invocation& invocation, const std::string& path)
{
    const auto file = addressable(path);
    auto connection = invocation.connect();
    const auto before = look(connection, file);
    requireStorable(connection, file, before.attributes.has_value(), Existing::addVersion);
    Draft draft(file.name());
    if (before.attributes) draft.write(before.content);
    try {
        runEditor(draft.path());
    } catch (const Failure& failure) {
        throw draft.exists() && draft.read() != before.content ? draft.keep(failure) : failure;
    }
    const auto content = draft.read();
    const bool changed = before.attributes ? draft.exists() && content != before.content : draft.exists();
    if (changed) {
        try {
            store(invocation, connection, file, before, draft);
        } catch (const std::exception&) {
            throw draft.keep(withFileAbove(connection, file, explain(std::current_exception())));
        }
    }
    invocation.out.message(changed ? "Stored " + file.quoted() +
                                         (before.attributes ? "; `tarn versions` lists what it was." : ".")
                                   : "Nothing was changed, so nothing was stored.");
    invocation.out.result("", {{"path", file.text()}, {"stored", changed}});
}

} // namespace

Verb edit()
{
    const auto path = std::make_shared<std::string>();
    return {.name = "edit",
            .summary = "Change a file in your editor",
            .examples = "  tarn edit /notes.md\n"
                        "  EDITOR='code --wait' tarn edit /notes.md",
            .notes = "The editor is that of VISUAL or EDITOR, else vi. What it leaves is stored as a new "
                     "version when it differs, and not when somebody else has changed the file meanwhile. "
                     "A file that is not there is made.",
            .takes = {{"PATH", path.get(), "The file", {.required = true, .words = Words::remote}}},
            .run = [path](const Invocation& invocation) { editFile(invocation, *path); }};
}

} // namespace tarncli::verbs
