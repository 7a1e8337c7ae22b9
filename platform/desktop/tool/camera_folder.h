#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "base/unique_fd.h"
#include "desktop/config/desktop_config.h"

/**
 * The folder in which one camera lives on a desktop: its parameters and events, and under root/ what a camera's file
 * system holds: the installed package, which is the application's working folder, and the model.
 */
namespace desktop {

/**
 * Where the package's own files lie: manifest, page, model cards, scenes. It is the folder "package" beside the running
 * program; SENVO_PACKAGE in the environment replaces it.
 */
std::filesystem::path packageFolder();

/**
 * Finds a model card by its path or, without one, by its name among the package's ("motion" is motion.json). Throws
 * std::runtime_error that lists the package's cards when there is none.
 */
std::filesystem::path findModelCard(const std::string& nameOrPath);

/** A model card and why it was taken, such as "motion, for there is no folder of networks". */
struct ChosenCard {
    std::filesystem::path card;
    std::string reason;
};

/**
 * As findModelCard, but "auto" is the first of the package's cards whose networks all lie in the folder, those that
 * count best for what they cost before the others; motion when there is none or no folder is given.
 */
ChosenCard chooseModelCard(const std::string& nameOrPath, const std::string& networksFolder);

/** Where a camera's folder is when nothing else was said. */
std::filesystem::path defaultStateFolder(const std::string& name);

/** The ledger of the camera in a folder; the archives lie beside it. */
std::filesystem::path ledgerFolder(const std::filesystem::path& stateFolder);

class CameraFolder {
public:
    /**
     * Lays the folder out, or uses what is there, and has it to itself from then on: two cameras would write over each
     * other's counts. Throws std::runtime_error naming the folder and the reason, which may be that it, or something in
     * it, belongs to somebody else, or that others may write to it.
     */
    explicit CameraFolder(const std::filesystem::path& folder);

    const std::filesystem::path& path() const { return m_path; }

    /** What stands for "/" on this camera. */
    std::filesystem::path root() const { return m_path / "root"; }

    /** The application's working folder. */
    std::filesystem::path application() const;

    /** Where the page and the application's socket lie. */
    std::filesystem::path html() const { return application() / "html"; }

    /** The application's log file. */
    std::filesystem::path log() const { return application() / "localdata" / "SenvoLog.txt"; }

    /** The file that the platform's services read their configuration from. */
    std::filesystem::path configFile() const { return m_path / "desktop.json"; }

    /**
     * Puts a model card where the application expects its model, for both mountings, each with the size of the picture
     * that the application then writes. Throws std::runtime_error naming the card and what is wrong with it.
     */
    void installModel(const std::filesystem::path& card, uint32_t width, uint32_t height) const;

    /** Writes the services' configuration. */
    void writeConfig(const DesktopConfig& config) const;

private:
    std::filesystem::path m_path;
    UniqueFd m_lock;
};

}  // namespace desktop
