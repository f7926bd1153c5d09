# title: geotool ellipsoids — the reference ellipsoid catalogue (first ten of 61)
"$GEOTOOL" ellipsoids | sed -n 1,10p  # sed reads to the end: no broken pipe for geotool
