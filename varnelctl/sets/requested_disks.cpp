#include "varnelctl/sets/requested_disks.h"

#include <algorithm>
#include <map>

#include "text/ascii_case.h"
#include "text/nearest_name.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;
using TesselCommonClasses::WindowsDiskDevice;
using SerialNumbers = std::vector<std::wstring>;

constexpr wchar_t kBlanks[] = L" \t";

bool Has(const SerialNumbers& serialNumbers, const std::wstring& wanted) {
  return std::find(serialNumbers.begin(), serialNumbers.end(), wanted) != serialNumbers.end();
}

// What is left of a serial number where case and blanks do not count.
std::wstring Folded(const std::wstring& serialNumber) {
  std::wstring folded = varnel::ascii::ToLower(serialNumber);
  std::erase_if(folded, [](wchar_t c) { return c == L' ' || c == L'\t'; });
  return folded;
}

SerialNumbers Split(const std::wstring& text, const wchar_t* separators) {
  SerialNumbers parts;
  for (std::size_t begin = 0; (begin = text.find_first_not_of(separators, begin)) != text.npos;) {
    const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
    parts.push_back(text.substr(begin, end - begin));
    begin = end;
  }
  return parts;
}

std::wstring Trimmed(const std::wstring& text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == text.npos ? std::wstring() : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

UsageError NamedTwice(const std::wstring& first, const std::wstring& second) {
  return UsageError("--disk names " + Quoted(first) + " twice" +
                    (first == second ? "" : ", the second time as " + Quoted(second)));
}

// The disks of this host, as far as serial numbers go.
class KnownDisks {
 public:
  void Add(const std::vector<WindowsDiskDevice>& disks) {
    for (const WindowsDiskDevice& disk : disks) {
      if (disk.serialNumber.empty() || Has(disk.serialNumber)) continue;
      serialNumbers_.push_back(disk.serialNumber);
      byFolded_.emplace(Folded(disk.serialNumber), disk.serialNumber);
    }
  }

  bool Has(const std::wstring& serialNumber) const { return varnelctl::Has(serialNumbers_, serialNumber); }
  bool HasAll(const SerialNumbers& serialNumbers) const {
    return std::all_of(serialNumbers.begin(), serialNumbers.end(), [this](const auto& each) { return Has(each); });
  }
  /// The serial number that differs in case and blanks alone; empty without one.
  std::wstring SpeltOtherwise(const std::wstring& serialNumber) const {
    const auto found = byFolded_.find(Folded(serialNumber));
    return found == byFolded_.end() ? std::wstring() : found->second;
  }

  /// The serial numbers of an argument. A serial number may have any of the separators in it.
  SerialNumbers Read(const std::wstring& argument) const {
    if (Has(argument)) return {argument};
    SerialNumbers list;
    for (const std::wstring& part : Split(argument, L",;")) {
      for (std::wstring& serialNumber : ReadWords(part)) list.push_back(std::move(serialNumber));
    }
    return list.size() > 1 ? list : SerialNumbers{argument};
  }

  /// The serial number in `list` that is `serialNumber` in the same or another spelling, which two disks may have.
  const std::wstring* FindIn(const SerialNumbers& list, const std::wstring& serialNumber) const {
    const auto found = std::find_if(list.begin(), list.end(), [&](const std::wstring& other) {
      return other == serialNumber || (Folded(other) == Folded(serialNumber) && !(Has(other) && Has(serialNumber)));
    });
    return found == list.end() ? nullptr : &*found;
  }

  /// The warning about a serial number that no disk has. Throws UsageError where it is none to take as it is.
  std::string WarnOfUnknown(const std::wstring& serialNumber, bool acceptUnknown) const {
    const std::string text = "no disk of this host has serial " + Quoted(serialNumber);
    if (const std::wstring other = SpeltOtherwise(serialNumber); !other.empty()) {
      throw UsageError(text + "; did you mean " + Quoted(other) + "?");
    }
    const std::string nearest = varnel::DidYouMean(varnel::WideToUtf8Lossy(serialNumber), serialNumbers_);
    if (acceptUnknown) return text + nearest;
    throw UsageError(text + (nearest.empty() ? "; varnelctl disks lists those that there are" : nearest) +
                     " (--accept-unknown-disks takes a disk of another host)");
  }

 private:
  // Blanks part a list only where one of its words is a disk's.
  SerialNumbers ReadWords(const std::wstring& part) const {
    const std::wstring whole = Trimmed(part);
    if (whole.empty()) return {};
    if (Has(whole) || !SpeltOtherwise(whole).empty()) return {whole};
    SerialNumbers words = Split(whole, kBlanks);
    const bool anyKnown =
        std::any_of(words.begin(), words.end(), [this](const auto& word) { return !SpeltOtherwise(word).empty(); });
    return anyKnown ? words : SerialNumbers{whole};
  }

  SerialNumbers serialNumbers_;
  std::map<std::wstring, std::wstring> byFolded_;
};

// Where an argument names a disk that is not known; its search takes a while.
void AddDisksWithoutVolumes(KnownDisks& known, const std::vector<std::string>& arguments) {
  const bool allKnown = std::all_of(arguments.begin(), arguments.end(), [&](const std::string& argument) {
    return known.HasAll(known.Read(varnel::Utf8ToWideLossy(argument)));
  });
  if (allKnown) return;
  try {
    for (const WindowsDiskDevice& disk : ManagedDisks()) {
      // The disk management may spell the serial number of a disk that is known otherwise.
      if (known.SpeltOtherwise(disk.serialNumber).empty()) known.Add({disk});
    }
  } catch (const TesselCommonClasses::ExceptionCommon&) {
    // They count as unknown.
  }
}

}  // namespace

void CheckDiskArguments(const std::vector<std::string>& arguments) {
  SerialNumbers seen;
  for (const std::string& argument : arguments) {
    const std::wstring serialNumber = varnel::Utf8ToWideLossy(argument);
    if (Folded(serialNumber).empty()) throw UsageError("--disk: " + Quoted(serialNumber) + " is no serial number");
    if (Has(seen, serialNumber)) throw NamedTwice(serialNumber, serialNumber);
    seen.push_back(serialNumber);
  }
}

RequestedDisks ReadRequestedDisks(const std::vector<std::string>& arguments, DiskAndVolumeEnumerator& enumerator,
                                  bool acceptUnknown) {
  KnownDisks known;
  known.Add(enumerator.GetDisks());
  const KnownDisks withVolumes = known;
  AddDisksWithoutVolumes(known, arguments);
  RequestedDisks requested;
  SerialNumbers& list = requested.serialNumbers;
  for (const std::string& argument : arguments) {
    for (const std::wstring& serialNumber : known.Read(varnel::Utf8ToWideLossy(argument))) {
      if (const std::wstring* first = known.FindIn(list, serialNumber)) throw NamedTwice(*first, serialNumber);
      list.push_back(serialNumber);
      if (withVolumes.Has(serialNumber)) continue;
      requested.warnings.push_back(known.Has(serialNumber)
                                       ? Warning{"diskWithoutVolume", "disk " + Quoted(serialNumber) +
                                                                          " has no volume of its own to be in a set"}
                                       : Warning{"diskUnknown", known.WarnOfUnknown(serialNumber, acceptUnknown)});
    }
  }
  return requested;
}

}  // namespace varnelctl
