// The identifiers of the type library, its classes and their interfaces. They are name-based (RFC
// 9562, version 5, in the namespace of kNamespace; the name of a class is "Korvane_beta1.Class",
// that of its interface "Korvane_beta1._Class"), so nobody has to keep a list of what was drawn.
// Clients compile them in: they never change.
#pragma once

#include <span>
#include <string_view>

namespace korvane::com {

inline constexpr std::string_view kLibraryName = "Korvane_beta1";
inline constexpr std::string_view kNamespace = "7e3e57c7-af40-43a2-98bb-8e648e906093";
inline constexpr std::string_view kLibraryId = "5f3aea16-a508-59ac-8f13-85621b3ccdb8";
inline constexpr int kMajorVersion = 1;
inline constexpr int kMinorVersion = 0;
/// By which the server knows its own objects again ("Korvane_beta1.held object"); not published.
inline constexpr std::string_view kHeldObjectId = "ef43f741-77f5-5c84-80df-0154c6bd27f3";

struct ClassIdentifiers {
  std::string_view name;
  std::string_view class_id;
  std::string_view interface_id;
};

std::span<const ClassIdentifiers> Identifiers();
/// The line of a published class, or none.
const ClassIdentifiers* FindIdentifiers(std::string_view class_name);

}  // namespace korvane::com
