// Calls of the C interface in any order, with handles, numbers and texts from anywhere, on a small host. Each returns a
// code that there is, what it hands out is UTF-8, and nothing is left behind.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "c/varnel-c.h"
#include "fuzz/fuzz_support.h"
#include "simulator/simulated_host.h"
#include "tests/support/host_model.h"

namespace {

using varnel::fuzz::Require;

varnel::simulator::HostModel Model() {
  varnel::simulator::HostModel model = varnel::test::SmallHost();
  model.writers = {varnel::test::MakeWriter(L"Mail", 1, {varnel::test::MakeComponent(L"mail", L"db1", {L"E:\\db1"})})};
  return model;
}

// One input: calls that are made one after the other.
class Calls {
 public:
  explicit Calls(varnel::fuzz::Input input) : input_(input) {}

  void Run() {
    constexpr int kCalls = 64;
    for (int i = 0; i < kCalls && Next(); ++i) {
    }
    for (varnel_request* request : requests_) varnel_request_free(request);
  }

 private:
  static constexpr int (*kOperations[])(varnel_request*) = {
      varnel_request_validate_host, varnel_request_initialize,   varnel_request_gather, varnel_request_snapshot,
      varnel_request_verify,        varnel_request_read_catalog, varnel_request_break,  varnel_request_mask,
      varnel_request_delete,        varnel_request_disconnect,   varnel_request_free};
  static constexpr int (*kTexts[])(varnel_request*, const char**) = {
      varnel_request_get_alert_records, varnel_request_get_set_id, varnel_request_get_document,
      varnel_request_get_databases};
  static constexpr int (*kCounts[])(varnel_request*, std::size_t*) = {
      varnel_request_get_snapshot_count, varnel_request_get_writer_count, varnel_request_get_catalog_count};
  static constexpr int (*kQuestions[])(varnel_request*, int*) = {varnel_request_find_provider,
                                                                 varnel_request_find_writer};

  // False at the end of the input.
  bool Next() {
    const std::uint8_t kind = input_.Byte();
    switch (kind) {
      case 0:
        return false;
      case 'c':
        Create();
        break;
      case 'o':
        Operate();
        break;
      case 'd':
        AddDisks();
        break;
      case 't':
        AskForText();
        break;
      case 's':
        AskForStructure();
        break;
      case 'w':
        GiveText();
        break;
      default:
        Complete();
    }
    return true;
  }

  // One that was made, freed or not, or a number from the input.
  varnel_request* Handle() {
    const std::uint8_t which = input_.Byte();
    if (which < requests_.size()) return requests_[which];
    return reinterpret_cast<varnel_request*>(  // NOLINT(performance-no-int-to-ptr): no address
        static_cast<std::uintptr_t>(which == 0xFF ? input_.Number() : which));
  }

  static void RequireUtf8(const char* text) {
    Require(text != nullptr && varnel::fuzz::IsUtf8(text), "texts that are handed out are UTF-8");
  }

  static int Known(int code) {
    Require(std::string_view(varnel_code_text(code)) != "no code of this library", "a function returns a code");
    return code;
  }

  // The outcome is the code's.
  static void CheckOutcome(varnel_request* request, int code) {
    Known(code);
    if (code == VARNEL_BAD_HANDLE) return;
    varnel_outcome outcome = {};
    outcome.size = sizeof outcome;
    if (varnel_request_get_outcome(request, &outcome) != VARNEL_DONE) return;  // it was freed
    Require(outcome.code == code, "the outcome is that of the call");
    Require((code == VARNEL_DONE) == (*outcome.message == '\0'), "what is not done has a message");
    Require((code == VARNEL_DONE) == (outcome.backup_status == 0), "what is not done is a failure of the backup");
    RequireUtf8(outcome.message);
    RequireUtf8(outcome.alert_records);
    for (std::size_t i = 0; i < outcome.detail_count; ++i) RequireUtf8(outcome.details[i]);
  }

  void Create() {
    varnel_request_options options = {};
    options.size = input_.Byte() == 0xFF ? input_.Number() : sizeof options;
    options.application = input_.Byte() - 1;
    options.context = input_.Byte();
    options.backup_type = input_.Byte() - 1;
    options.restore = input_.Byte() & 1;
    options.writer_code = static_cast<int>(input_.Number());
    options.test_points = input_.Byte();
    const std::string document(input_.Line());
    const std::string provider(input_.Line());
    if (!document.empty()) options.document = document.c_str();
    if (!provider.empty()) options.provider_id = provider.c_str();
    varnel_request* request = nullptr;
    const int code = Known(varnel_request_create(&options, &request));
    Require((code == VARNEL_DONE) == (request != nullptr), "a request is made or refused");
    if (request != nullptr) requests_.push_back(request);
  }

  void Operate() {
    const auto operation = kOperations[input_.Byte() % std::size(kOperations)];
    varnel_request* const request = Handle();
    CheckOutcome(request, operation(request));
  }

  void Complete() {
    varnel_request* const request = Handle();
    CheckOutcome(request, varnel_request_complete(request, static_cast<int>(input_.Number())));
  }

  void AddDisks() {
    varnel_request* const request = Handle();
    const std::string first(input_.Line());
    const std::string second(input_.Line());
    const char* const texts[] = {first.c_str(), second.c_str(), nullptr};
    const std::size_t count = input_.Byte() % 4;
    const bool validates = (input_.Byte() & 1) != 0;
    CheckOutcome(request, validates ? varnel_request_validate_volumes(request, texts, count)
                                    : varnel_request_add_disks(request, texts, count));
  }

  void GiveText() {
    varnel_request* const request = Handle();
    const std::string text(input_.Line());
    int found = 0;
    switch (input_.Byte() % 4) {
      case 0:
        return CheckOutcome(request, varnel_request_set_provider(request, text.c_str()));
      case 1:
        return CheckOutcome(request, varnel_request_find_disk(request, text.c_str(), &found));
      default:
        return CheckOutcome(request, kQuestions[input_.Byte() % std::size(kQuestions)](request, &found));
    }
  }

  void AskForText() {
    const std::uint8_t which = input_.Byte();
    varnel_request* const request = Handle();
    const char* text = "";
    Known(kTexts[which % std::size(kTexts)](request, &text));
    RequireUtf8(text);
    std::size_t count = 0;
    Known(kCounts[which % std::size(kCounts)](request, &count));
  }

  template <class Struct, class Function, class... Indices>
  bool Fill(Struct& structure, Function function, varnel_request* request, Indices... indices) {
    structure.size = input_.Byte() == 0xFF ? input_.Byte() : sizeof structure;
    return Known(function(request, indices..., &structure)) == VARNEL_DONE;
  }

  void AskForStructure() {
    varnel_request* const request = Handle();
    const std::size_t first = input_.Byte();
    const std::size_t second = input_.Byte();
    varnel_snapshot snapshot = {};
    if (Fill(snapshot, varnel_request_get_snapshot, request, first)) RequireUtf8(snapshot.device);
    varnel_writer writer = {};
    if (Fill(writer, varnel_request_get_writer, request, first)) RequireUtf8(writer.name);
    varnel_component component = {};
    if (Fill(component, varnel_request_get_component, request, first, second)) {
      RequireUtf8(component.full_path);
      for (std::size_t i = 0; i < component.disk_count; ++i) RequireUtf8(component.disks[i]);
    }
    varnel_file file = {};
    if (Fill(file, varnel_request_get_file, request, first, second, second)) RequireUtf8(file.path);
    if (Fill(file, varnel_request_get_excluded_file, request, first, second)) RequireUtf8(file.path);
    varnel_catalog_disk disk = {};
    if (Fill(disk, varnel_request_get_catalog_disk, request, first)) {
      for (std::size_t i = 0; i < disk.object_count; ++i) RequireUtf8(disk.object_names[i]);
      for (std::size_t i = 0; i < disk.other_count; ++i) RequireUtf8(disk.other_ids[i]);
    }
  }

  varnel::fuzz::Input input_;
  std::vector<varnel_request*> requests_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  varnel::simulator::SimulatedHost host(Model());
  host.calls().enabled = false;
  const varnel::ScopedHost current(host);
  Calls(varnel::fuzz::Input(data, size)).Run();
  Require(host.live().Count() == 0, "nothing is live after the requests");
  Require(host.live().misuses().empty(), "nothing was given back wrongly");
  return 0;
}
