#include "cli/machine/Environment.h"
#include "cli/machine/FileText.h"
#include "cli/machine/Process.h"
#include "cli/machine/SystemError.h"
#include "cli/remote/FileAbove.h"
#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/RecordedTransfer.h"
#include "cli/transfer/Upload.h"
#include "cli/verbs/Verb.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

namespace fs = std::filesystem;
using namespace connector::tarn;
using connector::Future;

/// The text while it is edited: a file of the same name, so that the editor knows its kind, in a folder that only the
/// user can read. It goes unless it is kept.
class Draft {
public:
    explicit Draft(const std::string& name)
    {
        auto folderName = (fs::temp_directory_path() / "tarn-edit-XXXXXX").string();
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
    fs::path file;
    bool kept = false;
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

/// As a new version, so that nothing is lost whatever happens at the same moment, and with its SHA-256, so that the
/// service stores nothing else.
Future<StoredContent> send(Connection& connection, const Upload& upload)
{
    const auto content = LocalContent::ofFile(std::get<fs::path>(upload.origin), upload.symlinks);
    return storeContent(connection, upload.remote, content.publisher(countFromZero()), content.size(),
                        Existing::addVersion, upload.existing.has_value(), {.sha256 = content.sha256()});
}

Transfer storing(Connection& connection, const Upload& upload)
{
    const auto version = std::make_shared<std::string>();
    Change change{upload.existing ? Change::Kind::addVersion : Change::Kind::createFile,
                  upload.remote.stored()};
    change.size = upload.size;
    if (upload.existing)
        change.before = naming(upload.remote, [&] { return currentOf(connection, upload.remote).version; });
    Transfer transfer;
    transfer.what = upload.remote.quoted();
    transfer.item = upload.remote.stored();
    transfer.bytes = upload.size;
    transfer.start = [&connection, upload, version] {
        return send(connection, upload).then([version](Future<StoredContent>&& stored) {
            *version = stored.get().version;
            return true;
        });
    };
    transfer.mayRepeat = isSentDamaged;
    transfer.wasDone = [&connection, upload] { return isStored(connection, upload); };
    return recorded(connection, std::move(transfer), std::move(change), version);
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
            if (!before.isSame(findAttributes(connection, file)))
                throw Failure(ExitCode::conflict,
                              file.quoted() + " has changed while you edited it; nothing was stored.");
            Upload upload{fs::path(draft.path()), file, content.size()};
            if (before.attributes)
                upload.existing = StoredFile{before.attributes->watermark, before.attributes->size};
            Transfers transfers(connection, invocation.out);
            transfers.add(storing(connection, upload));
            conclude(transfers.run(), "stored");
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
