#pragma once

#include "toolkit/NavigationController.h"

// The navigation controller that hosts the list: a class of the application's own that adds
// nothing to its base.
class RootViewController : public NavigationController
{
    Q_OBJECT
public:
    using NavigationController::NavigationController;
};
