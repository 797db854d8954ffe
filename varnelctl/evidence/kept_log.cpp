#include "varnelctl/evidence/kept_log.h"

#include <new>
#include <utility>

#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

class KeepingLog final : public varnel::LogSink {
 public:
  KeepingLog(std::unique_ptr<varnel::LogSink> sink, KeptLog& kept) : sink_(std::move(sink)), kept_(kept) {}

  int LowestCategory() const override { return CFileLog::Verbose; }
  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    kept_.Add(category, source, line, text);
    if (sink_ && category >= sink_->LowestCategory()) sink_->Write(category, source, line, text);
  }
  void Lose() noexcept override {
    kept_.Lose();
    if (sink_) sink_->Lose();
  }
  varnel::LostLines Lost() const override { return sink_ ? sink_->Lost() : varnel::LostLines(); }

 private:
  const std::unique_ptr<varnel::LogSink> sink_;
  KeptLog& kept_;
};

}  // namespace

void KeptLog::Add(int category, std::wstring_view source, int line, std::wstring_view text) {
  const std::lock_guard lock(mutex_);
  try {
    std::string rendered;
    lines_.AppendTo(rendered, varnel::LetterOf(category), source, line, text);
    if (end_.empty() && leftOut_ == 0 && beginning_.size() + rendered.size() <= room_.beginning) {
      beginning_ += rendered;
      return;
    }
    const std::size_t bytes = rendered.size();
    end_.push_back(std::move(rendered));
    endBytes_ += bytes;  // only what is there
  } catch (const std::bad_alloc&) {
    ++leftOut_;
  }
  for (; endBytes_ > room_.end; ++leftOut_) {
    endBytes_ -= end_.front().size();
    end_.pop_front();
  }
}

void KeptLog::Lose() noexcept {
  const std::lock_guard lock(mutex_);
  ++leftOut_;
}

std::string KeptLog::Text() const {
  const std::lock_guard lock(mutex_);
  std::string text = beginning_;
  if (leftOut_ != 0) text += "... " + Counted(leftOut_, "line") + " left out here ...\n";
  for (const std::string& line : end_) text += line;
  return text;
}

std::unique_ptr<varnel::LogSink> MakeKeepingLog(std::unique_ptr<varnel::LogSink> sink, KeptLog& kept) {
  return std::make_unique<KeepingLog>(std::move(sink), kept);
}

}  // namespace varnelctl
