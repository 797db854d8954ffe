// One idiom for a call on the service: what is called, what it delivers, and what a failure does.
//
//   CheckedCall(AlertAndThrow("m_pVssObject->StartSnapshotSet()", errorDetails), m_pVssObject,
//               &IVssBackupComponents::StartSnapshotSet, &setId);
//   const auto component = Obtain<IVssComponent>(LogAndThrow(L"pWriter->GetComponent(iBCDComp, &pComponent)"), writer,
//                                                &IVssWriterComponents::GetComponent, index);
//
// An asynchronous operation is obtained in the same way and then waited for (WaitAndCheckForAsyncOperation).
#pragma once

#include <utility>

#include "core/checks.h"
#include "platform/owners.h"
#include "platform/vss.h"

namespace varnel {

/// The result of a method; VSS_E_BAD_STATE without an object.
template <class Object, class Interface, class... Parameters, class... Arguments>
HRESULT ResultOf(Object* object, HRESULT (STDMETHODCALLTYPE Interface::*method)(Parameters...),
                 Arguments&&... arguments) {
  return object == nullptr ? VSS_E_BAD_STATE : (object->*method)(std::forward<Arguments>(arguments)...);
}
template <class Object, class Method, class... Arguments>
HRESULT ResultOf(const ComPtr<Object>& object, Method method, Arguments&&... arguments) {
  return ResultOf(object.Get(), method, std::forward<Arguments>(arguments)...);
}

/// Calls a method and hands its result to `onFailure`.
template <class Failure, class Object, class Method, class... Arguments>
void CheckedCall(const Failure& onFailure, const Object& object, Method method, Arguments&&... arguments) {
  onFailure(ResultOf(object, method, std::forward<Arguments>(arguments)...));
}

/// A success without the object that it promises is as unexpected as a failure.
template <class T>
HRESULT Delivered(HRESULT hr, const T& object) {
  return SUCCEEDED(hr) && !object ? E_UNEXPECTED : hr;
}

/// What the method delivers through its last argument.
template <class Made, class Failure, class Object, class Method, class... Arguments>
ComPtr<Made> Obtain(const Failure& onFailure, const Object& object, Method method, Arguments&&... arguments) {
  ComPtr<Made> made;
  const HRESULT hr = ResultOf(object, method, std::forward<Arguments>(arguments)..., made.Put());
  onFailure(Delivered(hr, made));
  return made;
}

/// Another interface of the object.
template <class Made, class Failure, class Object>
ComPtr<Made> ObtainInterface(const Failure& onFailure, Object* object, const IID& interfaceId) {
  ComPtr<Made> made;
  const HRESULT hr = object == nullptr ? VSS_E_BAD_STATE : QueryFor(object, interfaceId, made);
  onFailure(Delivered(hr, made));
  return made;
}

}  // namespace varnel
