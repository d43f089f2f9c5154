// The parsers that turn the text of one filter word into a FltValue.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ordo/usb/cxx20.h"
#include "ordo/usb/filter_types.h"
#include "ordo/usb/flt_value.h"

namespace ordo::usb {

class FltStrHelper {
 public:
  FltStrHelper(std::string idName1, std::string idName2, FilterType type)
      : idName1_(std::move(idName1)), idName2_(std::move(idName2)), type_(type) {}
  virtual void parse(const std::string &text, FltValue &value) const;
  virtual ~FltStrHelper() = default;

  const std::string &idName1() const { return idName1_; }
  const std::string &idName2() const { return idName2_; }
  FilterType type() const { return type_; }

 protected:
  std::string idName1_;
  std::string idName2_;
  FilterType type_;
};

// The two-part identifiers (bus and port, vid and pid).
class FltStrHelperDevAbs : public FltStrHelper {
 public:
  using FltStrHelper::FltStrHelper;

  // "vid-1234" or "xvid1234" into a detail; what cannot be read becomes a
  // detail named after the whole piece with the value "Error".
  void parseIdPiece(const std::string &piece, FltDetail &detail) const;
  // Zero-pads on the left to 2 characters for a path, 4 for an identifier.
  std::string padId(const std::string &text) const;

 protected:
  // Indices of the first tokens holding idName1 and idName2; false unless
  // both are there.
  bool findIdTokens(const std::vector<std::string> &tokens, size_t &first, size_t &second) const;
  void addIdDetails(const std::vector<std::string> &tokens, size_t first, size_t second,
                    FltValue &value) const;
  static void markFailed(const std::string &text, FltValue &value);
};

class FltStrHelperDev : public FltStrHelperDevAbs {
 public:
  using FltStrHelperDevAbs::FltStrHelperDevAbs;
  void parse(const std::string &text, FltValue &value) const override;
};

class FltStrHelperSpltIdInc : public FltStrHelperDevAbs {
 public:
  using FltStrHelperDevAbs::FltStrHelperDevAbs;
  void parse(const std::string &text, FltValue &value) const override;
};

class FltStrHelperFam : public FltStrHelper {
 public:
  using FltStrHelper::FltStrHelper;
  void parse(const std::string &text, FltValue &value) const override;
};

class FltStrHelperBool : public FltStrHelper {
 public:
  using FltStrHelper::FltStrHelper;
  void parse(const std::string &text, FltValue &value) const override;
};

// A new helper for the type, or null for exintf, exingp and numbers above 22.
std::unique_ptr<FltStrHelper> makeFltStrHelper(FilterType type);

}  // namespace ordo::usb
