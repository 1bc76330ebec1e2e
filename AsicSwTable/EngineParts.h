#pragma once
// The names of the engine's parts (defined in their own headers), for a table
// to befriend the parts it is composed of.

namespace Asic {

namespace TableEngine {
template <class T>
struct __attribute__((visibility("hidden"))) Handles;
template <class T>
struct __attribute__((visibility("hidden"))) Values;
template <class T>
struct __attribute__((visibility("hidden"))) WritePath;
template <class T>
struct __attribute__((visibility("hidden"))) Indices;
template <class T>
struct __attribute__((visibility("hidden"))) Programming;
template <class T>
struct __attribute__((visibility("hidden"))) Removal;
template <class T>
struct __attribute__((visibility("hidden"))) Resolution;
template <class T>
struct __attribute__((visibility("hidden"))) Recovery;
template <class T>
struct __attribute__((visibility("hidden"))) Lookups;
}  // namespace TableEngine

}  // namespace Asic
