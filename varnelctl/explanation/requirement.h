// --require: what must be in a set, or none is taken.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "varnelctl/explanation/objects.h"

namespace varnelctl {

/// Something that was required would not be in the set. what() says how much in one line.
class NotContained : public std::runtime_error {
 public:
  NotContained(const std::string& what, std::vector<std::string> objects)
      : std::runtime_error(what), objects_(std::move(objects)) {}
  /// Of each object what it is, why it would not be in the set, and what to do about it.
  const std::vector<std::string>& objects() const noexcept { return objects_; }

 private:
  std::vector<std::string> objects_;
};

/// Throws NotContained unless every object that is required is selected whole. \param required names of objects
/// (UTF-8), of which each means all that have it; "all" means every object of the application.
void CheckRequired(const std::vector<std::string>& required, const std::vector<ApplicationObject>& objects,
                   Application application);

/// The objects that the name means. Throws NotContained with the nearest right name where there is none.
std::vector<const ApplicationObject*> ObjectsNamed(std::string_view name, const std::vector<ApplicationObject>& objects,
                                                   Application application);

/// "--disk A B", each as a shell takes it, where blanks and the like count.
std::string DiskOption(const std::vector<std::wstring>& serialNumbers);

/// Why no set of disks could hold the object: "NAME: REASON (REMEDY)".
std::string WhyNotHeld(const ApplicationObject& object, Application application);

/// Why files of the object are not on the disks, whatever a request makes of it: "REASON (REMEDY)"; empty where all
/// are.
std::string WhyNotWhole(const ApplicationObject& object, Application application);

/// "REASON (REMEDY)"; empty of one that is in the set.
std::string WhyLeftOut(const ApplicationObject& object, Application application);

/// Why the object is not in the set, and what to do about it: "NAME: REASON (REMEDY)"; of one that is, its name.
std::string WhyNotCaptured(const ApplicationObject& object, Application application);

}  // namespace varnelctl
