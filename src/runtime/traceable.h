// The traceable exception family: tagged, formatted, identified, optionally wrapping another.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <boost/format.hpp>

class Cloneable {
public:
    virtual ~Cloneable() = default;
    virtual Cloneable* clone() const = 0;
};

namespace quelt {

class ExInfoVisitor {
public:
    virtual ~ExInfoVisitor() = default;
    virtual void visitTag(const std::string& tag) = 0;
    virtual void visitId(const std::string& id) = 0;
    virtual void visitText(const std::string& text) = 0;
    virtual void visitFunction(const std::string& function) = 0;
    virtual void visitFile(const std::string& file) = 0;
    virtual void visitLine(int line) = 0;
    virtual void enterIncluded() = 0;
    virtual void visitCode(int code) = 0;
};

class ExVisitable {
public:
    virtual ~ExVisitable() = default;
    virtual void accept(ExInfoVisitor& visitor) const = 0;
};

// The thrower feeds the message format its arguments (operator%) before throwing.
class ExTraceable : public Cloneable, public ExVisitable, public std::runtime_error {
public:
    ExTraceable(const std::string& tag, const std::string& format, int code);
    ~ExTraceable() override;
    ExTraceable* clone() const override;
    const char* what() const noexcept override;
    void accept(ExInfoVisitor& visitor) const override;

    template <class T>
    ExTraceable& operator%(const T& argument)
    {
        format_ % argument;
        return *this;
    }

    const std::string& id() const { return id_; }
    int code() const { return code_; }

private:
    boost::format format_;
    mutable std::string text_;
    std::string id_;
    int code_;
};

class ExTaggedIncludable : public ExTraceable {
public:
    ExTaggedIncludable(const std::string& tag, const std::string& format, int code);
    ExTaggedIncludable(const ExTaggedIncludable& other);
    ExTaggedIncludable& operator=(const ExTaggedIncludable& other);
    ~ExTaggedIncludable() override;
    ExTaggedIncludable* clone() const override;
    void accept(ExInfoVisitor& visitor) const override;

    // Takes a deep copy of the exception this one was caused by.
    void include(const Cloneable& cause);
    const Cloneable* included() const { return included_.get(); }

private:
    std::unique_ptr<Cloneable> included_;
};

// Only its address matters: it makes one Exc type per tag.
struct ExTag {
};

template <const ExTag* Tag>
class Exc : public ExTaggedIncludable {
public:
    Exc(const std::string& tag, const std::string& format, int code, std::string function,
        std::string file, int line)
        : ExTaggedIncludable(tag, format, code), function_(std::move(function)),
          file_(std::move(file)), line_(line)
    {
    }
    Exc* clone() const override { return new Exc(*this); }
    void accept(ExInfoVisitor& visitor) const override
    {
        visitor.visitFunction(function_);
        visitor.visitFile(file_);
        visitor.visitLine(line_);
        ExTaggedIncludable::accept(visitor);
    }
    template <class T>
    Exc& operator%(const T& argument)
    {
        ExTraceable::operator%(argument);
        return *this;
    }

private:
    std::string function_;
    std::string file_;
    int line_;
};

}  // namespace quelt
