# title: geotool db — a geographic database filled from GeoJSON, queried, edited and exported
db=$DEMO_TMP/austria
"$GEOTOOL" db create "$db" --description "Austria sample" --revision 1
"$GEOTOOL" db import "$db" "$SAMPLES/db-austria.geojson"
"$GEOTOOL" db info "$db"
echo "--- items meeting 47..48 N, 13..14 E"
"$GEOTOOL" db query "$db" --bbox 47 13 48 14
echo "--- lakes anywhere"
"$GEOTOOL" db query "$db" --bbox -90 -180 90 180 --kind lake
echo "--- item 12"
"$GEOTOOL" db get "$db" 12
"$GEOTOOL" db delete "$db" 18
"$GEOTOOL" db compact "$db"
echo "--- exported GeoJSON (first three features)"
"$GEOTOOL" db export "$db" | sed -n 1,4p
