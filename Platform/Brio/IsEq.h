#pragma once
// The framework's equality hook for keys: a key type may specialise it when
// `==` is not what collections should use.
#pragma GCC visibility push(default)
namespace Brio::Util {

template <class K>
struct IsEq {
   static bool isEq(const K& a, const K& b) { return a == b; }
};

}  // namespace Brio::Util
#pragma GCC visibility pop
