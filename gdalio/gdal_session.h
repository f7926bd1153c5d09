// GDAL started once for the whole library, and GDAL's error reports turned into exceptions that carry
// GDAL's own message. Every function of this folder calls GdalSession() before touching GDAL and reads
// files inside a TGdalErrorTrap, so that nothing GDAL says goes to the user's terminal unasked.
#pragma once

#include <string>

namespace qv {

// Registers GDAL's raster and vector drivers on the first call; later calls do nothing. Safe to call
// from any thread.
void GdalSession();

// While alive, GDAL's errors and warnings on this thread are kept here instead of being printed. GDAL's
// error state is per thread; traps nest (the innermost one hears).
class TGdalErrorTrap {
public:
    TGdalErrorTrap();
    ~TGdalErrorTrap();
    TGdalErrorTrap(const TGdalErrorTrap&) = delete;
    TGdalErrorTrap& operator=(const TGdalErrorTrap&) = delete;

    // The last failure GDAL reported (empty when none), e.g. "`x.tif' does not exist in the file system,
    // and is not recognized as a supported dataset name."
    const std::string& LastError() const { return FLastError; }
    // The last failure, or Fallback when GDAL reported none (a null result without a message).
    std::string Message(const std::string& Fallback) const { return FLastError.empty() ? Fallback : FLastError; }

private:
    static void Handler(int Class, int Number, const char* Text);
    std::string FLastError;
};

}  // namespace qv
