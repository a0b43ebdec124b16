// A module for clang-tidy (--load) that limits its checks to what this tree declares.
//
// A source of a few hundred lines brings several tens of thousands with it: the standard library,
// protobuf, gtest. clang-tidy 14 tries every check on every expression of them and then drops what
// it found there, which takes most of its time. Declarations from headers of the system are parsed
// as before and known to every check; they are not searched.

#include <clang/AST/ASTConsumer.h>
#include <clang/AST/ASTContext.h>
#include <clang/AST/Decl.h>
#include <clang/Basic/SourceManager.h>
#include <clang/Frontend/FrontendAction.h>
#include <clang/Frontend/FrontendPluginRegistry.h>

#include <memory>
#include <string>
#include <vector>

namespace {

// Called with the whole parsed source, before the checks are.
class OwnDeclarations : public clang::ASTConsumer {
  public:
    void HandleTranslationUnit(clang::ASTContext& context) override {
        const clang::SourceManager& sources = context.getSourceManager();
        std::vector<clang::Decl*> own;
        for (clang::Decl* const declaration : context.getTranslationUnitDecl()->decls()) {
            const clang::SourceLocation place = sources.getExpansionLoc(declaration->getLocation());
            if (place.isValid() && !sources.isInSystemHeader(place)) {
                own.push_back(declaration);
            }
        }
        context.setTraversalScope(own);
    }
};

class LintScope : public clang::PluginASTAction {
  public:
    std::unique_ptr<clang::ASTConsumer> CreateASTConsumer(clang::CompilerInstance& /*compiler*/,
                                                          llvm::StringRef /*file*/) override {
        return std::make_unique<OwnDeclarations>();
    }

    bool ParseArgs(const clang::CompilerInstance& /*compiler*/,
                   const std::vector<std::string>& /*arguments*/) override {
        return true;
    }

    ActionType getActionType() override { return AddBeforeMainAction; }
};

// Being loaded is all that a module can do to be called.
const clang::FrontendPluginRegistry::Add<LintScope> registration(
    "lint-scope", "limits the checks to what this tree declares");

}  // namespace
