/* kQuakemlMappings: where the values of QuakeML, and of the sc3ml dialect, go. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_QUAKEML_MAPPINGS_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_QUAKEML_MAPPINGS_H

#include <array>

#include "formats/exchange/format.h"

namespace ksutil::exchange {

inline constexpr std::array kQuakemlMappings{
    Mapping{"event@publicID", "publicid.textid (evid); event.evname without a name"},
    Mapping{"event/preferredOriginID", "event.prefor"},
    Mapping{"event/preferredMagnitudeID",
            "line \"preferred magnitude\" of event.commid; origin.mb, ms, ml"},
    Mapping{"event/type", "origin.etype"},
    Mapping{"event/description (earthquake name)",
            "line \"name\" of event.commid; event.evname"},
    Mapping{"event/description (region, cities)", "line \"place\" of event.commid"},
    Mapping{"event/description (others), event/comment", "lines of event.commid"},
    Mapping{"event/creationInfo/agencyID, author", "event.auth"},
    Mapping{
        "creationInfo/creationTime (the latest of event, origin, magnitude, mechanism)",
        "lddate of all rows"},
    Mapping{"origin@publicID", "publicid.textid (orid)"},
    Mapping{"origin/time, latitude, longitude, depth",
            "origin.time, jdate, lat, lon, depth"},
    Mapping{"origin/depthType", "origin.dtype"},
    Mapping{"origin/quality/usedPhaseCount, associatedPhaseCount, depthPhaseCount",
            "origin.ndef, nass, ndp"},
    Mapping{"origin/quality/standardError", "origerr.sdobs"},
    Mapping{"origin/quality/azimuthalGap, minimumDistance; evaluationStatus, "
            "evaluationMode",
            "line \"status; gap; dmin\" of origin.commid"},
    Mapping{"origin/time/uncertainty, depth/uncertainty", "origerr.stime, sdepth"},
    Mapping{"origin/originUncertainty/horizontalUncertainty",
            "origerr.smajax without an ellipse"},
    Mapping{"origin/originUncertainty/maxHorizontalUncertainty, "
            "minHorizontalUncertainty, azimuthMaxHorizontalUncertainty",
            "origerr.smajax, sminax, strike"},
    Mapping{"origin/originUncertainty/confidenceEllipsoid",
            "origerr.sxx, syy, szz, sxy, sxz, syz; the ellipse from it"},
    Mapping{"origin/originUncertainty/confidenceLevel", "origerr.conf"},
    Mapping{"origin/methodID", "origin.algorithm"},
    Mapping{"origin/earthModelID, arrival/earthModelID",
            "assoc.vmodel; line \"model\" of origin.commid"},
    Mapping{"origin/creationInfo/agencyID, author", "origin.auth"},
    Mapping{"origin/comment", "lines of origin.commid"},
    Mapping{"arrival/pickID", "assoc.arid"},
    Mapping{"arrival/phase", "assoc.phase"},
    Mapping{"arrival/distance, azimuth", "assoc.delta, esaz"},
    Mapping{"arrival/timeResidual, backazimuthResidual, horizontalSlownessResidual",
            "assoc.timeres, azres, slores"},
    Mapping{"arrival/timeWeight", "assoc.wgt, timedef"},
    Mapping{"arrival/backazimuthWeight, horizontalSlownessWeight (whether 0)",
            "assoc.azdef, slodef"},
    Mapping{"pick@publicID", "publicid.textid (arid)"},
    Mapping{"pick/time", "arrival.time, jdate, deltim"},
    Mapping{"pick/waveformID", "arrival.sta, chan; seedcode; affiliation"},
    Mapping{"pick/phaseHint, onset, polarity", "arrival.iphase, qual, fm"},
    Mapping{"pick/backazimuth, horizontalSlowness",
            "arrival.azimuth, delaz, slow, delslo"},
    Mapping{"pick/comment", "lines of arrival.commid"},
    Mapping{"amplitude/genericAmplitude (m, of a pick), period, snr",
            "arrival.amp, per, snr"},
    Mapping{"magnitude@publicID", "publicid.textid (magid)"},
    Mapping{"magnitude/mag, type, stationCount",
            "netmag.magnitude, uncertainty, magtype, nsta"},
    Mapping{"magnitude/originID", "netmag.orid"},
    Mapping{"magnitude/creationInfo/agencyID, author", "netmag.auth, net"},
    Mapping{"magnitude/comment", "lines of netmag.commid"},
    Mapping{"magnitude/stationMagnitudeContribution", "stamag.magid, magdef"},
    Mapping{"stationMagnitude/mag, type, waveformID",
            "stamag.magnitude, uncertainty, magtype, sta"},
    Mapping{"stationMagnitude/amplitudeID (its pick)", "stamag.arid"},
    Mapping{"momentTensor@publicID, else focalMechanism@publicID",
            "publicid.textid (mtid)"},
    Mapping{"focalMechanism/triggeringOriginID, else momentTensor/derivedOriginID",
            "mt.orid"},
    Mapping{"momentTensor/derivedOriginID", "mt.ctime, clat, clon, cdepth"},
    Mapping{"momentTensor/momentMagnitudeID", "mt.magid, mw"},
    Mapping{"momentTensor/scalarMoment, tensor", "mt.moment, mrr to mtp"},
    Mapping{"momentTensor/doubleCouple, clvd, iso, varianceReduction",
            "mt.pctdc, pctclvd, pctiso, varred"},
    Mapping{"momentTensor/dataUsed/stationCount, componentCount", "mt.nsta, ncomp"},
    Mapping{"focalMechanism/nodalPlanes, principalAxes",
            "mt.strike1 to rake2, tval to pazim"},
    Mapping{"focalMechanism/evaluationStatus, evaluationMode", "mt.evalmode"},
    Mapping{"focalMechanism/methodID, momentTensor/methodID", "mt.algorithm"},
    Mapping{"focalMechanism/comment, momentTensor/comment", "lines of mt.commid"}};

}  // namespace ksutil::exchange
#endif
