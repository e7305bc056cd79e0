// The traceable exception family's formatting, copying and visiting.
#include "runtime/traceable.h"

#include "runtime/uuid.h"

namespace quelt {

ExTraceable::ExTraceable(const std::string& tag, const std::string& format, int code)
    : std::runtime_error(tag), format_(format), id_(newUUID()), code_(code)
{
}

ExTraceable::~ExTraceable() = default;

ExTraceable* ExTraceable::clone() const
{
    return new ExTraceable(*this);
}

const char* ExTraceable::what() const noexcept
{
    try {
        text_ = format_.str();
    } catch (...) {
        // A format short of arguments still says what it was about.
        text_.clear();
    }
    return text_.c_str();
}

void ExTraceable::accept(ExInfoVisitor& visitor) const
{
    visitor.visitTag(std::runtime_error::what());
    visitor.visitId(id_);
    visitor.visitCode(code_);
    visitor.visitText(what());
}

ExTaggedIncludable::ExTaggedIncludable(const std::string& tag, const std::string& format, int code)
    : ExTraceable(tag, format, code)
{
}

ExTaggedIncludable::ExTaggedIncludable(const ExTaggedIncludable& other)
    : ExTraceable(other), included_(other.included_ ? other.included_->clone() : nullptr)
{
}

ExTaggedIncludable& ExTaggedIncludable::operator=(const ExTaggedIncludable& other)
{
    if (this != &other) {
        ExTraceable::operator=(other);
        included_.reset(other.included_ ? other.included_->clone() : nullptr);
    }
    return *this;
}

ExTaggedIncludable::~ExTaggedIncludable() = default;

ExTaggedIncludable* ExTaggedIncludable::clone() const
{
    return new ExTaggedIncludable(*this);
}

void ExTaggedIncludable::include(const Cloneable& cause)
{
    included_.reset(cause.clone());
}

void ExTaggedIncludable::accept(ExInfoVisitor& visitor) const
{
    ExTraceable::accept(visitor);
    if (included_) {
        visitor.enterIncluded();
        if (auto* visitable = dynamic_cast<const ExVisitable*>(included_.get()))
            visitable->accept(visitor);
    }
}

}  // namespace quelt
