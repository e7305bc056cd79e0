// Records what an exception's visitor is shown, as one "kind:value;" string.
#pragma once

#include <string>

#include "runtime/traceable.h"

struct RecordingVisitor : quelt::ExInfoVisitor {
    std::string trail;
    void visitTag(const std::string& s) override { trail += "tag:" + s + ";"; }
    void visitId(const std::string& s) override { trail += "id:" + std::to_string(s.size()) + ";"; }
    void visitText(const std::string& s) override { trail += "text:" + s + ";"; }
    void visitFunction(const std::string& s) override { trail += "fn:" + s + ";"; }
    void visitFile(const std::string& s) override { trail += "file:" + s + ";"; }
    void visitLine(int n) override { trail += "line:" + std::to_string(n) + ";"; }
    void enterIncluded() override { trail += "in;"; }
    void visitCode(int n) override { trail += "code:" + std::to_string(n) + ";"; }
};
