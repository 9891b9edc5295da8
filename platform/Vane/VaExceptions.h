// The row layer's errors. One class per cause; the text is the caller's.
#pragma once

#include "platform/Guard/Exception.h"

namespace Vane {

// An operation that needs bytes met a row without a buffer; text "null row".
class VaNullRow final : public Guard::Throwable<VaNullRow> {
 public:
  using Throwable::Throwable;
};

// A write to a read-only row.
class VaPermissionViolation final : public Guard::Throwable<VaPermissionViolation> {
 public:
  using Throwable::Throwable;
};

// A length, offset or index number beyond its bound.
class VaOutOfRange final : public Guard::Throwable<VaOutOfRange> {
 public:
  using Throwable::Throwable;
};

// An operation that this kind of row or table does not have.
class VaNotSupported final : public Guard::Throwable<VaNotSupported> {
 public:
  using Throwable::Throwable;
};

// A generic row of another row type.
class VaBadCast final : public Guard::Throwable<VaBadCast> {
 public:
  using Throwable::Throwable;
};

// A table name, row type name or column name that the row database does not know.
class VaUnknownName final : public Guard::Throwable<VaUnknownName> {
 public:
  using Throwable::Throwable;
};

}  // namespace Vane
