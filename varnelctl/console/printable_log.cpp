#include "varnelctl/console/printable_log.h"

#include <new>
#include <string>
#include <utility>

#include "varnelctl/console/text.h"

namespace varnelctl {
namespace {

class PrintableLog final : public varnel::LogSink {
 public:
  explicit PrintableLog(std::unique_ptr<varnel::LogSink> sink) : sink_(std::move(sink)) {}

  int LowestCategory() const override { return sink_->LowestCategory(); }
  void Write(int category, std::wstring_view source, int line, std::wstring_view text) override {
    std::wstring printable;
    try {
      printable = PrintableLines(text);
    } catch (const std::bad_alloc&) {
      return sink_->Lose();
    }
    sink_->Write(category, source, line, printable);
  }
  void Lose() noexcept override { sink_->Lose(); }
  varnel::LostLines Lost() const override { return sink_->Lost(); }

 private:
  const std::unique_ptr<varnel::LogSink> sink_;
};

}  // namespace

std::unique_ptr<varnel::LogSink> MakePrintableLog(std::unique_ptr<varnel::LogSink> sink) {
  return std::make_unique<PrintableLog>(std::move(sink));
}

}  // namespace varnelctl
