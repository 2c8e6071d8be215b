// `zelkctl sign`: the signature of a package, in the file beside it.

#include <ctime>
#include <memory>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"
#include "platform/file.h"
#include "platform/tree_writer.h"
#include "zelka_core/package/package_signature.h"
#include "zelka_core/package/package_signing.h"

namespace {

struct Arguments {
    std::string file;
    ZelkaCore::SigningFiles with;
};

// The file is there whole or as it was.
void Write(const std::string& path, const std::string& content) {
    const std::size_t slash = path.rfind('/') + 1;  // npos + 1 is 0
    TreeWriter writer;
    std::string failed;
    std::error_code error = writer.Open(slash == 0 ? "." : path.substr(0, slash), ".zelkctl-");
    error = error ? error : writer.AddFile(path.substr(slash), content, std::nullopt);
    error = error ? error : writer.Commit(failed);
    if (error) {
        throw CommandError(Shown(path) + " cannot be written: " + error.message());
    }
}

void RunSign(const Options& options, const Arguments& given) {
    FileStream package;
    if (const auto error = OpenRegularStream(given.file, package)) {
        throw CommandError(Shown(given.file) + ": " + error.message());
    }
    std::string signature;
    std::string signer;
    std::string fault;
    if (!ZelkaCore::MakeSignature(package.get(), given.with, std::time(nullptr), signature, signer,
                                  fault)) {
        throw CommandError(Shown(given.file) + " is not signed: " + Shown(fault));
    }
    const std::string path = given.file + ZelkaCore::kSignatureEnding;
    Write(path, signature);
    if (options.isJson) {
        PrintJson(ZelkaCore::Json{{"file", path}, {"signer", signer}});
    } else {
        PrintLine(Shown(path) + " is written, the signature of " + signer + ".");
    }
}

}  // namespace

void AddSignCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand("sign", "Signs a package: writes FILE.p7s beside it");
    auto given = std::make_shared<Arguments>();
    command->add_option("FILE", given->file, "the package")->required();
    command->add_option("--key", given->with.key, "the private key, in PEM")
        ->required()
        ->type_name("FILE");
    command->add_option("--cert", given->with.certificate, "the certificate of the key")
        ->required()
        ->type_name("FILE");
    command
        ->add_option("--chain", given->with.chain,
                     "certificates between that one and the trusted one")
        ->type_name("FILE");
    command->callback([&options, given] { RunSign(options, *given); });
}
