#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "config/config_params.h"
#include "config/parameter_controller.h"
#include "detection/location_controller_larod.h"
#include "tracking/area_of_interest.h"
#include "web/http_request_controller.h"

/** An uploaded record and how far its upload came: what the analysis is to take over between two cycles. */
struct SettingsUpdate {
    ConfigParams settings;
    std::string user = {};       /**< who uploaded them */
    bool overlays = false;       /**< the choice of streams was reached */
    bool maxDisappeared = false; /**< the tracker's limit was reached */
    bool detectionAreas = false;
    bool exclusions = false;
    bool entrances = false;
};

/** What the exchange works with; all outlive it. */
struct ParameterIoParts {
    ConfigParams& config; /**< the web service's own record; the analysis gets its changes through publish */
    location_controller_larod& detector;
    http_request_controller& followers;
    parameter_controller& store;
    const MetricsParams& metrics;
    const LeaderMetricsParams& leaderMetrics;
    const std::atomic<int>& status;
    std::function<void(const SettingsUpdate&)> publish;
};

/**
 * The exchange of settings between the web page, the record and the running components, and the texts that show the
 * application's health.
 *
 * Documents are elements without nesting, attributes or escaping: <Tag>value</Tag>. The page works with coordinates
 * from 0 to 1, the record with pixels of the analysis stream. Web service's thread, except the static functions.
 */
class parameter_io {
public:
    explicit parameter_io(ParameterIoParts parts);

    /** The settings document. */
    std::string get_parameters() const;

    /**
     * Takes a settings document, <root>...</root>, into force, then saves it. Returns 0, or -1 when it holds no tags.
     * Throws std::invalid_argument, std::out_of_range or std::domain_error for a value that is no number, cannot be
     * stored or, with an analysis period of 0, cannot be computed; the fields read until then stay changed in memory,
     * and nothing is saved. user: who uploads it, for the record.
     */
    int set_post_parameters(const std::string& body, const std::string& user = {});

    /** Tag names and values of what stands between <root> and </root>; a repeated tag keeps its last value. */
    static std::map<std::string, std::string> parseXMLData_no_dependency(const std::string& body);

    /** The text of a status code. */
    static std::string status_to_string(int code);

    /** This camera and its followers side by side. */
    std::string get_data_panel_info() const;

    /** Hands the followers' addresses and logins to the HTTP client, active or not. */
    void store_data_into_http_request_controller();

    /** The sizes of the streams that the camera has, "WxH," each; set before the service starts. */
    std::string CameraResolutionsAsCsv;

    // Push the record's polygons and flags into the areas: detection areas, exclusions and entrances.
    static void store_points_into_AOI(const ConfigParams& config, area_of_interest& areas);
    static void store_points_into_exclusions(const ConfigParams& config, area_of_interest& areas);
    static void store_points_into_occupancies(const ConfigParams& config, area_of_interest& areas);

private:
    void upload(std::map<std::string, std::string> values, SettingsUpdate& update);

    ParameterIoParts m_parts;
};
