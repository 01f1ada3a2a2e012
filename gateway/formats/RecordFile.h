#pragma once

#include <cstdint>
#include <memory>

#include "gateway/Sink.h"
#include "gateway/formats/RecordLines.h"
#include "gateway/formats/TextFile.h"

namespace brenloft {

/// Records as lines of a file. What could not be written is told by a `gap` once it can be again.
class RecordFile final : public Sink {
 public:
  RecordFile(std::unique_ptr<TextFile> file, RecordLines lines, Labels labels)
      : file_(std::move(file)), lines_(std::move(lines)), labels_(std::move(labels)) {}

  void accept(const Record& record) override;
  void flush() override { file_->flush(); }
  void reopen() override { file_->reopen(); }
  State state() const override { return file_->state(); }
  /// Records, in all.
  uint64_t dropped() const { return dropped_; }

 private:
  const std::unique_ptr<TextFile> file_;
  RecordLines lines_;
  const Labels labels_;
  uint64_t dropped_ = 0;
  uint64_t told_ = 0;  // of those, by a `gap`
};

}  // namespace brenloft
