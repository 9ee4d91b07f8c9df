// Identification, estimation and forecasting of seasonal ARIMA models.
//
// None of its commands is built yet: their rows in the command table have no handler, and the
// command loop says so. Estimators of this room will hand their results to the stage of regress/.
#pragma once
