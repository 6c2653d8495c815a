#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

// Where the model of what is seen and the part that starts and stops reports meet.

/// A client that holds a channel of a modem.
struct PAGE_HOLDER
{
    unsigned int ulClient = 0; // number of its connection in the agent's run
    std::string strAddress;    // dotted
};

/// The GU command channel of a modem as the tap shows it.
struct PAGE_DOOR
{
    std::optional<unsigned int> port; // nothing: the modem has no such port now
    std::optional<PAGE_HOLDER> holder;
};

/// What control needs of the model. From any thread.
class IPageDoors
{
public:
    virtual ~IPageDoors() = default;
    virtual PAGE_DOOR GuDoor(unsigned int ulUe) = 0;
};

/// What the views need of control. From any thread; never waits for the agent, and calls nobody.
class IPageControlView
{
public:
    virtual ~IPageControlView() = default;
    /// The members of /api/control: enabled, port, held_by, running, error; with bChoices also choices.
    virtual nlohmann::ordered_json Control(unsigned int ulUe, const PAGE_DOOR& stDoor, bool bChoices) const = 0;
};
