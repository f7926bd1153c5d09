#include <qvgeo/gdalio/gdal_session.h>

#include <cpl_error.h>
#include <gdal.h>

#include <mutex>

namespace qv {

void GdalSession()
{
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
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
