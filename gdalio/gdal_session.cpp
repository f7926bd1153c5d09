#include <qvgeo/gdalio/gdal_session.h>

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal.h>

#include <mutex>

namespace qv {

void GdalSession()
{
    static std::once_flag once;
    std::call_once(once, [] {
        GDALAllRegister();
        // GDAL's block cache defaults to 5% of the machine's memory, 1.6 GB on a 32 GB desktop: more than a
        // map viewer should hold for tiles it can decode again in milliseconds. 256 MB unless the user
        // chose with GDAL_CACHEMAX.
        constexpr GIntBig cap = GIntBig(256) << 20;
        if (!CPLGetConfigOption("GDAL_CACHEMAX", nullptr) && GDALGetCacheMax64() > cap)
            GDALSetCacheMax64(cap);
    });
}

TGdalErrorTrap::TGdalErrorTrap()
{
    GdalSession();
    CPLPushErrorHandlerEx(
        [](CPLErr Class, CPLErrorNum Number, const char* Text) {
            Handler(static_cast<int>(Class), static_cast<int>(Number), Text);
        },
        this);
}

TGdalErrorTrap::~TGdalErrorTrap() { CPLPopErrorHandler(); }

void TGdalErrorTrap::Handler(int Class, int, const char* Text)
{
    auto* self = static_cast<TGdalErrorTrap*>(CPLGetErrorHandlerUserData());
    if (self && Class >= CE_Failure && Text)
        self->FLastError = Text;
}

}  // namespace qv
