// A row type's columns, told once. Everything else about the type follows from the list: offsets,
// fixed length, key, variable-size columns, signature, hash, equality, order, JSON and text.
//
//   0        2      4              4 + width of 1st                 fixedLength
//   | length | type | 1st column   | 2nd column    | ...            |    no gaps
//
// A list is walked as a list of placed columns: all of them, the key columns, the variable-size
// columns, or those that have a default. A walk hands each column to a callable as an empty object
// whose type tells name, Type and offset.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <string_view>
#include <type_traits>

#include "platform/Vane/ColumnKinds.h"

namespace RoutingTypes {

using Vane::ColumnKind;
using Vane::len_t;
using Vane::VariableColumn;

// A column name as a template argument.
template <size_t N>
struct ColumnName {
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is given where a name is expected.
  constexpr ColumnName(const char (&literal)[N]) { std::copy_n(literal, N, chars); }
  constexpr std::string_view view() const { return {chars, N - 1}; }
  char chars[N];
};

// `defaults` is empty, or the one value that a row gets when it is made without values.
template <ColumnName columnName, ColumnKind T, bool inKey, auto... defaults>
struct BasicColumn {
  static_assert(sizeof...(defaults) <= 1);
  using Type = T;
  static constexpr std::string_view name = columnName.view();
  static constexpr bool isKey = inKey;
  static constexpr bool isVariable = VariableColumn<T>;
  static constexpr bool hasDefault = sizeof...(defaults) != 0;
  static constexpr T defaultValue() { return (defaults, ...); }
};

template <ColumnName name, ColumnKind T, auto... defaults>
using Column = BasicColumn<name, T, false, defaults...>;

template <ColumnName name, ColumnKind T, auto... defaults>
using KeyColumn = BasicColumn<name, T, true, defaults...>;

// A column with its place in the row.
template <class Column, len_t at>
struct Placed : Column {
  static constexpr len_t offset = at;
};

template <class C>
concept PlacedColumn = ColumnKind<typename C::Type> && std::is_empty_v<C> && requires {
  { C::offset } -> std::same_as<const len_t&>;
  { C::name } -> std::same_as<const std::string_view&>;
};

template <PlacedColumn... Columns>
struct PlacedColumns {
  static constexpr size_t count = sizeof...(Columns);

  static constexpr void forEach([[maybe_unused]] auto visit) { (visit(Columns{}), ...); }
  // Visits each column with the value of the same place.
  template <class... Values>
  requires(sizeof...(Values) == count) &&
      (std::same_as<typename Columns::Type, Values> &&
       ...) static constexpr void forEachWith([[maybe_unused]] auto visit,
                                              const Values&... values) {
    (visit(Columns{}, values), ...);
  }
  // Stops at the first column for which `holds` does not.
  static constexpr bool allOf([[maybe_unused]] auto holds) { return (holds(Columns{}) && ...); }

  // Bytes of the columns' slots.
  static constexpr len_t width = (len_t{0} + ... + Vane::slotWidth<typename Columns::Type>);
};

template <class... A, class... B>
PlacedColumns<A..., B...> operator+(PlacedColumns<A...>, PlacedColumns<B...>);

namespace detail {

template <bool keep, class C>
using If = std::conditional_t<keep, PlacedColumns<C>, PlacedColumns<>>;

template <class Done, class... Rest>
struct Place {
  using All = Done;
};
template <class... Done, class Next, class... Rest>
struct Place<PlacedColumns<Done...>, Next, Rest...>
    : Place<PlacedColumns<Done...,
                          Placed<Next, Vane::va_contentOffset + PlacedColumns<Done...>::width>>,
            Rest...> {};

template <class Columns>
struct Only {
  static_assert(Columns::count == 1, "the row type has no column, or several, of this name");
};
template <class C>
struct Only<PlacedColumns<C>> {
  using type = C;
};

template <class Columns>
struct Pick;
template <class... Cs>
struct Pick<PlacedColumns<Cs...>> {
  using Keys = decltype((PlacedColumns<>{} + ... + If<Cs::isKey, Cs>{}));
  using Variable = decltype((PlacedColumns<>{} + ... + If<Cs::isVariable, Cs>{}));
  using Defaults = decltype((PlacedColumns<>{} + ... + If<Cs::hasDefault, Cs>{}));
  using NonKeyDefaults =
      decltype((PlacedColumns<>{} + ... + If < Cs::hasDefault && !Cs::isKey, Cs > {}));
  template <ColumnName name>
  using Named =
      typename Only<decltype((PlacedColumns<>{} + ... + If<Cs::name == name.view(), Cs>{}))>::type;
};

}  // namespace detail

template <class... Columns>
struct ColumnList {
  using All = typename detail::Place<PlacedColumns<>, Columns...>::All;
  using Keys = typename detail::Pick<All>::Keys;
  using Variable = typename detail::Pick<All>::Variable;
  using Defaults = typename detail::Pick<All>::Defaults;
  using NonKeyDefaults = typename detail::Pick<All>::NonKeyDefaults;

  // One column by its name.
  template <ColumnName name>
  using Named = typename detail::Pick<All>::template Named<name>;
  template <ColumnName name>
  using Type = typename Named<name>::Type;
  template <ColumnName name>
  static constexpr len_t offsetOf = Named<name>::offset;

  // Bytes of header and slots.
  static constexpr len_t fixedLength = Vane::va_contentOffset + All::width;
};

}  // namespace RoutingTypes
