// Logger: hands the library's log texts to the host's one callback.
//
// Internal. Hosts reach it through AuthEngineConfig. The filter stands in front
// of all work, so a dropped message costs no allocation.
#ifndef VANTREL_AUTH_BASE_LOGGER_H_
#define VANTREL_AUTH_BASE_LOGGER_H_

#include "VantrelAuthEngine64/AuthTypes.h"

namespace Vantrel {
namespace Auth {

class Logger {
 public:
  // The one logger of the process, created on first use (from any thread)
  // and never deleted.
  static Logger* GetInstance();

  void SetLogLevel(VantrelAuthLogLevel level);
  VantrelAuthLogLevel GetLogLevel() const;
  void SetCallback(VantrelAuthLogCallback callback);

  // Passes `text` on unchanged if the filter lets the level through.
  static void Log(VantrelAuthLogLevel level, const char* text);
  // Fills `format` (only "%s" placeholders, at most five) with the five
  // arguments; null arguments print as nothing. A format that breaks that rule
  // is passed on as it stands rather than formatted.
  static void LogFormat(VantrelAuthLogLevel level, const char* format, const char* a1,
                        const char* a2, const char* a3, const char* a4, const char* a5);
  // Whether a text of `level` would reach the host: lets a caller skip the
  // work of preparing texts that no one would see.
  static bool IsEnabled(VantrelAuthLogLevel level);

  virtual ~Logger();

 private:
  Logger();
  bool Passes(VantrelAuthLogLevel level) const;

  static Logger* instance_;

  // Plain fields, read by every log call: the host sets them before its
  // threads enter the library and leaves them alone while any is inside.
  VantrelAuthLogLevel log_level_;
  VantrelAuthLogCallback callback_;
};

}  // namespace Auth
}  // namespace Vantrel

#endif  // VANTREL_AUTH_BASE_LOGGER_H_
