// The renderer's side of the labels: walking the landmarks a view shows with their placement, and the
// landmark step of a frame when label options are on.
#pragma once

#include <qvgeo/mapview/map_labels.h>
#include <qvgeo/mapview/map_render.h>

#include <functional>

namespace qv::render_detail {

// Calls Visit for every landmark of the placement's domain that shows at the view's magnification, in the
// store's order, with Inside telling whether its control point lies strictly inside the view.
void ForEachLabelled(const TMapViewport& View, const TLandMarkStore& Store, const TCalibFit& Fit,
                     const TLabelOptions& Options, TLabelCache& Cache,
                     const std::function<void(const TPlacedLandMark&, bool Inside)>& Visit);

// The landmark loop under Look.Labels (only called when they are active): symbols (scaled) of every shown
// landmark, then the captions that were placed, halos first. OnDrawLandmark is asked for each shown
// landmark as in the plain loop. Without placement, landmarks are sampled with probability P as the plain
// loop samples them; with it every shown landmark is drawn (placement keeps the picture readable, and a
// random sample would change it at every paint).
void DrawLabelledLandMarks(const TMapViewport& View, const TMapSources& S, const TMapAppearance& Look,
                           const TMapRenderEvents& Events, TCanvas& Canvas, TMapRenderCaches* Caches, double P);

}  // namespace qv::render_detail
