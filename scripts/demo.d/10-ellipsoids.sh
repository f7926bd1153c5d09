# title: geotool ellipsoids — the reference ellipsoid catalogue (first ten of 61)
"$GEOTOOL" ellipsoids | head -n 10
