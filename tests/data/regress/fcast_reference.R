# Forecasts and their standard errors, made with R: predict() of lm and glm, and recursions and
# matrices written out where R has no such function. Rscript fcast_reference.R > fcast_reference.txt
# A case is a line C with its commands, lines V variable|tolerance|first|values, and lines
# L label|value for printed numbers.
d <- read.table("../textile.dat", col.names = c("t", "C", "I", "P"))
d$D <- as.numeric(d$C > 130 | d$t == 1925)
est <- 1:12; out <- 13:17
case <- function(commands) cat("C", paste(commands, collapse = ";"), "\n", sep = "")
v <- function(name, x, first, tol = 1e-10)
  cat("V", name, "|", tol, "|", first, "|", paste(sprintf("%.17g", x), collapse = " "), "\n", sep = "")
l <- function(label, x) cat("L", label, "|", sprintf("%.15g", x), "\n", sep = "")

stats <- function(y, f) {
  e <- y - f; n <- length(e); M <- mean(e^2)
  sy <- sqrt(mean((y - mean(y))^2)); sf <- sqrt(mean((f - mean(f))^2))
  um <- (mean(f) - mean(y))^2 / M; us <- (sf - sy)^2 / M; uc <- 1 - um - us
  ur <- (sf - (1 - uc * M / (2 * sf * sy)) * sy)^2 / M
  l(" MEAN ERROR =", mean(e)); l(" SUM-SQUARED ERRORS =", sum(e^2)); l(" MEAN SQUARE ERROR =", M)
  l(" MEAN ABSOLUTE ERROR=", mean(abs(e))); l(" ROOT MEAN SQUARE ERROR =", sqrt(M))
  l(" MEAN SQUARED PERCENTAGE ERROR=", mean((100 * e / y)^2))
  l(" THEIL INEQUALITY COEFFICIENT U =", sqrt(sum(e[-1]^2) / sum(diff(y)^2)))
  l("      PROPORTION DUE TO BIAS =", um); l("      PROPORTION DUE TO VARIANCE =", us)
  l("      PROPORTION DUE TO COVARIANCE =", uc); l("      PROPORTION DUE TO REGRESSION =", ur)
  l("      PROPORTION DUE TO DISTURBANCE =", 1 - um - ur)
}

# Least squares: an observation and the mean.
m <- lm(C ~ I + P, d[est, ])
p <- predict(m, d[out, ], se.fit = TRUE)
case(c("OLS C I P / END=12", "FC / BEG=13 END=17 PREDICT=F RESID=R FCSE=S"))
v("F", p$fit, 13); v("R", d$C[out] - p$fit, 13); v("S", sqrt(p$se.fit^2 + p$residual.scale^2), 13)
stats(d$C[out], p$fit)
case(c("OLS C I P / END=12", "FC / BEG=13 END=17 FCSE=S MEANPRED"))
v("S", p$se.fit, 13)

# The robust covariance of White.
X <- model.matrix(m); A <- solve(crossprod(X)); V <- A %*% crossprod(X * resid(m)) %*% A
Z <- cbind(1, d$I[out], d$P[out])
case(c("OLS C I P / END=12 HETCOV", "FC / BEG=13 END=17 FCSE=S"))
v("S", sqrt(rowSums((Z %*% V) * Z) + summary(m)$sigma^2), 13)

# A lag and a lead of regressors.
d$I1 <- c(NA, d$I[-17]); d$P1 <- c(d$P[-1], NA)
m <- lm(C ~ I1 + P1, d[2:12, ])
p <- predict(m, d[13:16, ], se.fit = TRUE)
case(c("OLS C I(1) P(-1) / BEG=1 END=12", "FC / BEG=13 END=16 PREDICT=F FCSE=S"))
v("F", p$fit, 13); v("S", sqrt(p$se.fit^2 + p$residual.scale^2), 13)

# A lagged dependent variable, forecast from its own forecasts. The share of the coefficients in the
# variance is the numerical derivative of the recursion.
d$CL <- c(NA, d$C[-17])
m <- lm(C ~ CL + I + P, d[2:12, ])
b <- coef(m)[c("CL", "I", "P", "(Intercept)")]; V <- vcov(m)[names(b), names(b)]
walk <- function(b) {
  f <- d$C
  for (t in out) f[t] <- b[1] * f[t - 1] + b[2] * d$I[t] + b[3] * d$P[t] + b[4]
  f[out]
}
J <- sapply(1:4, function(k) { h <- 1e-4 * abs(b[k]); e <- replace(numeric(4), k, h)
  (8 * (walk(b + e) - walk(b - e)) - (walk(b + 2 * e) - walk(b - 2 * e))) / (12 * h) })
case(c("GENR CL=LAG(C)", "OLS C CL I P / BEG=2 END=12", "FC / BEG=13 END=17 DYNAMIC PREDICT=F FCSE=S"))
v("F", walk(b), 13)
v("S", sqrt(rowSums((J %*% V) * J) + summary(m)$sigma^2 * cumsum(b[1]^(2 * (0:4)))), 13, 1e-9)
# Two lags: each one's forecasts have a part in the derivatives of the other.
d$CL2 <- c(NA, NA, d$C[1:15])
m <- lm(C ~ CL + CL2 + I, d[3:12, ])
b <- coef(m)[c("CL", "CL2", "I", "(Intercept)")]; V <- vcov(m)[names(b), names(b)]
walk <- function(b) {
  f <- d$C
  for (t in out) f[t] <- b[1] * f[t - 1] + b[2] * f[t - 2] + b[3] * d$I[t] + b[4]
  f[out]
}
J <- sapply(1:4, function(k) { h <- 1e-4 * abs(b[k]); e <- replace(numeric(4), k, h)
  (8 * (walk(b + e) - walk(b - e)) - (walk(b + 2 * e) - walk(b - 2 * e))) / (12 * h) })
w <- c(1, b[1]); for (i in 3:5) w[i] <- b[1] * w[i - 1] + b[2] * w[i - 2]
case(c("GENR CL=LAG(C)", "GENR CL2=LAG(C,2)", "OLS C CL CL2 I / BEG=3 END=12",
       "FC / BEG=13 END=17 DYNAMIC PREDICT=F FCSE=S"))
v("F", walk(b), 13)
v("S", sqrt(rowSums((J %*% V) * J) + summary(m)$sigma^2 * cumsum(w^2)), 13, 1e-8)
case(c("OLS C I P / COEF=B", "FC C C(1) I / COEF=B BEG=5 END=17 DYNAMIC ESTEND=8 PREDICT=F"))
b <- coef(lm(C ~ I + P, d))[c(2, 3, 1)]; f <- d$C
for (t in 5:17) f[t] <- b[1] * (if (t - 1 > 8) f[t - 1] else d$C[t - 1]) + b[2] * d$I[t] + b[3]
v("F", f[5:17], 5)

# Errors of first order at a given rho: forecasts one step and many steps ahead.
r <- 0.6; y <- d$C[est]; X <- cbind(d$I, 1)
star <- function(z) rbind(sqrt(1 - r^2) * z[1, ], z[-1, , drop = FALSE] - r * z[-nrow(z), , drop = FALSE])
Xs <- star(X[est, ]); ys <- star(matrix(y)); A <- solve(crossprod(Xs)); b <- A %*% crossprod(Xs, ys)
s2 <- sum((ys - Xs %*% b)^2) / (12 - 2); e <- d$C - X %*% b
case(c("AUTO C I / END=12 RHO=.6 ITER=1", "FC / BEG=2 END=17 PREDICT=F FCSE=S"))
dx <- X[2:17, ] - r * X[1:16, ]
v("F", X[2:17, ] %*% b + r * e[1:16], 2); v("S", sqrt(s2 * (1 + rowSums((dx %*% A) * dx))), 2)
h <- 1:5; dx <- X[out, ] - outer(r^h, X[12, ])
base <- s2 * ((1 - r^(2 * h)) / (1 - r^2) + rowSums((dx %*% A) * dx))
case(c("AUTO C I / END=12 RHO=.6 ITER=1", "FC / BEG=13 END=17 IBLUP PREDICT=F FCSE=S"))
v("F", X[out, ] %*% b + r^h * e[12], 13); v("S", sqrt(base), 13)
case(c("AUTO C I / END=12 RHO=.6 ITER=1", "FC / BEG=13 END=17 DYNAMIC AFCSE FCSE=S"))
v("S", sqrt(base + s2 * (h * r^(h - 1))^2 / 12), 13)
case(c("OLS C I / COEF=B", "FC C I / COEF=B MODEL=AUTO RHO=.5 SRHO=.2 BEG=3 END=17 PREDICT=F"))
b <- coef(lm(C ~ I, d)); e <- resid(lm(C ~ I, d))
v("F", b[1] + b[2] * d$I[3:17] + 0.5 * e[2:16] + 0.2 * e[1:15], 3)

# Probabilities. PROBIT iterates with a polynomial for the normal function, good to a few 1e-6.
m <- glm(D ~ I + P, binomial, d, epsilon = 1e-14, maxit = 100)
p <- predict(m, d, "response", se.fit = TRUE)
case(c("LOGIT D I P / CONV=1E-9", "FC / PREDICT=F FCSE=S"))
v("F", p$fit, 1, 1e-8); v("S", p$se.fit, 1, 1e-7)
m <- glm(D ~ I, binomial("probit"), d, epsilon = 1e-14, maxit = 100)
z <- predict(m); X <- model.matrix(m); f <- dnorm(z); P <- pnorm(z)
H <- crossprod(X * (f * ifelse(d$D == 1, (f + z * P) / P^2, (f - z * (1 - P)) / (1 - P)^2)), X)
case(c("PROBIT D I / CONV=1E-9", "FC / PREDICT=F FCSE=S"))
v("F", P, 1, 1e-5); v("S", f * sqrt(rowSums((X %*% solve(H)) * X)), 1, 2e-5)

# Box-Cox, with lambda given; panel data with the effects of the cross-sections.
b <- c(0.02, 1.5)
case(c("READ B / LIST BEG=1 END=2", ".02 1.5", "FC C I / COEF=B MODEL=BOX LAMBDA=.4 PREDICT=F"))
v("F", (0.4 * (b[1] * d$I + b[2]) + 1)^(1 / 0.4), 1)
case(c("READ B A / BEG=1 END=2", ".02 -3", "1.5 4",
       "FC C I / COEF=B MODEL=POOL NCROSS=2 CSFIX=A BEG=2 END=17 BLUP RHO=.5 PREDICT=F"))
z <- b[1] * d$I[2:17] + b[2] + rep(c(-3, 4), each = 8); e <- d$C[2:17] - z
v("F", z + 0.5 * c(0, e[1:7], 0, e[9:15]), 2)
