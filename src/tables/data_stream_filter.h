// Streams a table dump through a record filter into the text file a table is rebuilt from,
// chunk by chunk as the dump arrives, so memory does not grow with the table.
#pragma once

#include <cstring>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace quelt::mail::postfix::database {

// What the table store feeds a dump into, whatever the record filter behind it.
class ChunkFilter {
public:
    virtual ~ChunkFilter() = default;
    virtual void filterChunk(const std::vector<char>& chunk) = 0;
    // Called once after the dump has ended successfully.
    virtual void finish() = 0;
    // Some record was dropped or written back with different bytes.
    virtual bool changed() const = 0;
};

// Receives the dump in chunks of any size; every complete line goes through the filter and, if
// kept, is written with a line feed to `out`. Bytes after the last line feed wait for the next
// chunk or for finish(). The stream must outlive the object.
template <class Filter>
class DataStreamFilter final : public ChunkFilter {
public:
    DataStreamFilter(Filter filter, std::ostream& out) : filter_(std::move(filter)), out_(out) {}

    void filterChunk(const std::vector<char>& chunk) override
    {
        filterBytes(chunk.data(), chunk.size());
    }

    void filterBytes(const char* data, std::size_t size)
    {
        const char* end = data + size;
        while (data < end) {
            const void* found = std::memchr(data, '\n', static_cast<std::size_t>(end - data));
            if (!found)
                break;
            const char* eol = static_cast<const char*>(found);
            pending_.append(data, eol);
            writeLine();
            data = eol + 1;
        }
        pending_.append(data, end);
    }

    // A last line without a line feed, once the dump has ended successfully.
    void finish() override
    {
        if (!pending_.empty())
            writeLine();
    }

    bool changed() const override { return changed_; }

private:
    void writeLine()
    {
        // No flush per line: nobody reads the file before it is closed, and a write call per
        // record would double the time of a million-record rewrite.
        // The dump shows "key<TAB>value"; a kept record is unchanged when the filter wrote it
        // back as the same key, one space and the same value.
        if (!changed_) {
            original_ = pending_;
            const std::string::size_type tab = original_.find('\t');
            if (tab != std::string::npos)
                original_[tab] = ' ';
        }
        const bool kept = filter_(pending_);
        if (kept)
            out_ << pending_ << '\n';
        if (!changed_ && (!kept || pending_ != original_))
            changed_ = true;
        pending_.clear();
    }

    Filter filter_;
    std::ostream& out_;
    std::string pending_;
    std::string original_;
    bool changed_ = false;
};

}  // namespace quelt::mail::postfix::database
