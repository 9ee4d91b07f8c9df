# Makes reference.txt and the .dat files: R's values for probit, logit and tobit models.
#   Rscript reference.R      (in this folder; packages MASS, nnet, survival)
# A line C begins a case: name|commands. S: a variable that the commands store, tolerance, values.
# T: a temporary, tolerance, value. L: a printed line by its beginning and the numbers behind it.
suppressMessages({library(MASS); library(nnet); library(survival)})
b <- birthwt
birth <- data.frame(LOW = b$low, AGE = b$age, LWT = b$lwt, BLACK = +(b$race == 2),
                    OTHER = +(b$race == 3), SMOKE = b$smoke, HT = b$ht, RACE = b$race - 1)
cars <- data.frame(AM = mtcars$am, MPG = mtcars$mpg, WT = mtcars$wt)
inf <- with(infert, data.frame(CASE = case, AGE = age, PARITY = parity, SPONT = spontaneous, INDUC = induced))
dur <- data.frame(DUR = tobin$durable, AGE = tobin$age, QUANT = tobin$quant, W = c(1, 2, 3, 0.5))
for (n in c("birth", "cars", "inf", "dur"))
  write.table(get(n), paste0(n, ".dat"), row.names = FALSE, col.names = FALSE)
out <- file("reference.txt", "w")
num <- function(v) paste(sprintf("%.13g", v), collapse = " ")
case <- function(name, ...) cat("C", name, "|", paste(..., sep = ";"), "\n", sep = "", file = out)
stored <- function(name, tol, v) cat("S", name, "|", tol, "|", num(v), "\n", sep = "", file = out)
temp <- function(name, tol, v) cat("T", name, "|", tol, "|", num(v), "\n", sep = "", file = out)
line <- function(label, v) cat("L", label, "|", num(v), "\n", sep = "", file = out)
open_data <- function(n) sprintf("SAMPLE 1 %d;READ(@%s.dat) %s", nrow(get(n)), n, paste(names(get(n)), collapse = " "))
constant_last <- function(v) c(v[-1], v[1])

# Second derivatives of a log-likelihood by differences of fourth order.
hessian <- function(f, p, e = 1e-3) {
  n <- length(p); h <- e * pmax(abs(p), 0.01); H <- matrix(0, n, n)
  d1 <- function(f, i, p) { s <- replace(numeric(n), i, h[i]); (8 * (f(p + s) - f(p - s)) - (f(p + 2 * s) - f(p - 2 * s))) / (12 * h[i]) }
  for (i in 1:n) for (j in 1:i) H[i, j] <- H[j, i] <- d1(function(q) d1(f, j, q), i, p)
  H
}

models <- list(list("birth", LOW ~ AGE + LWT + BLACK + OTHER + SMOKE + HT), list("cars", AM ~ MPG + WT),
               list("inf", CASE ~ AGE + PARITY + SPONT + INDUC))
fit <- function(m, link, w = NULL) {
  d <- get(m[[1]]); d$.w <- if (is.null(w)) 1 else w
  glm(m[[2]], binomial(link), d, weights = .w, control = list(epsilon = 1e-15, maxit = 200))
}
words <- function(m) paste(all.vars(m[[2]]), collapse = " ")
P_of <- list(probit = pnorm, logit = plogis)
for (m in models) for (link in c("probit", "logit")) {
  g <- fit(m, link); X <- model.matrix(g); y <- g$y; F <- P_of[[link]]
  L <- function(p) sum(F((2 * y - 1) * drop(X %*% p), log.p = TRUE))
  V <- solve(-hessian(L, coef(g)))
  tol <- if (link == "probit") "5E-5" else "2E-7"  # the probability polynomial, differences
  case(paste(m[[1]], link), open_data(m[[1]]),
       paste(toupper(link), words(m), "/ CONV=1E-9 COEF=B STDERR=S COVARIAN=V PREDICT=P INDEX=I IMRATIO=M"))
  stored("B", tol, constant_last(coef(g)))
  stored("S", if (link == "probit") "2E-4" else "1E-6", constant_last(sqrt(diag(V))))
  stored("P", if (link == "probit") "2E-4" else "1E-6", head(fitted(g), 8))
  z <- g$linear.predictors
  stored("M", if (link == "probit") "2E-4" else "1E-6", head(ifelse(y == 1, dnorm(z) / pnorm(z), -dnorm(z) / pnorm(-z)), 8))
  temp("LLF", if (link == "probit") "3E-6" else "1E-11", as.numeric(logLik(g)))
}

# The probit with the system's own polynomial: Newton on the published derivatives.
own <- function(z) {
  z <- pmax(pmin(z, 14), -14); t <- 1 / (1 + 0.231649 * abs(z))
  q <- 0.3989423 * exp(-z * z / 2) * (0.319381 * t - 0.35656378 * t^2 + 1.781479 * t^3 - 1.821256 * t^4 + 1.3302744 * t^5)
  ifelse(z >= 0, 1 - q, q)
}
for (m in models) {
  g <- fit(m, "probit"); X <- model.matrix(g); y <- g$y; p <- coef(g)
  for (i in 1:50) {
    z <- drop(X %*% p); s <- 2 * y - 1; r <- exp(-z * z / 2) / 2.506628274631 / own(s * z)
    H <- crossprod(X, X * (r * (r + s * z))); p <- p + solve(H, crossprod(X, s * r))
  }
  case(paste(m[[1]], "probit by polynomial"), open_data(m[[1]]), paste("PROBIT", words(m), "/ CONV=1E-9 COEF=B STDERR=S"))
  stored("B", "1E-9", constant_last(drop(p)))
  stored("S", "1E-8", constant_last(sqrt(diag(solve(H)))))
  temp("LLF", "1E-11", sum(log(own(s * drop(X %*% p)))))
}

# Weights, NOCONSTANT, natural responses.
w <- inf$PARITY
g <- suppressWarnings(fit(models[[3]], "logit", w)); n1 <- sum(w * inf$CASE); N <- sum(w); L0 <- n1 * log(n1 / N) + (N - n1) * log(1 - n1 / N)
L <- sum(w * plogis((2 * g$y - 1) * g$linear.predictors, log.p = TRUE))
case("inf weighted", open_data("inf"), "LOGIT CASE AGE PARITY SPONT INDUC / CONV=1E-9 WEIGHT=PARITY COEF=B STDERR=S")
stored("B", "1E-9", constant_last(coef(g))); stored("S", "1E-8", constant_last(sqrt(diag(vcov(g)))))
temp("LLF", "1E-11", L); temp("N", "1E-13", N); temp("R2", "1E-9", 1 - L / L0)
f <- N / sum(w) * nrow(inf) / N
case("inf weights of mean one", open_data("inf"), "LOGIT CASE AGE PARITY SPONT INDUC / CONV=1E-9 WEIGHT=PARITY NORMALIZ STDERR=S")
stored("S", "1E-8", constant_last(sqrt(diag(vcov(g)) / f))); temp("LLF", "1E-11", f * L)
g <- glm(CASE ~ AGE + PARITY - 1, binomial, inf, control = list(epsilon = 1e-15))
case("inf without a constant", open_data("inf"), "LOGIT CASE AGE PARITY / NOCONSTANT CONV=1E-9 COEF=B STDERR=S")
stored("B", "1E-9", coef(g)); stored("S", "1E-8", sqrt(diag(vcov(g)))); temp("LLF", "1E-11", as.numeric(logLik(g)))
X <- model.matrix(models[[3]][[2]], inf); y <- inf$CASE
for (link in c("probit", "logit")) {
  L <- function(p) { P <- 0.05 + 0.92 * P_of[[link]](drop(X %*% p)); sum(log(ifelse(y == 1, P, 1 - P))) }
  o <- optim(coef(fit(models[[3]], link)), L, control = list(fnscale = -1, reltol = 1e-16, maxit = 20000))
  p <- o$par
  for (i in 1:8) { # polish
    gr <- sapply(seq_along(p), function(i) { h <- 1e-4 * max(abs(p[i]), .01); s <- replace(0 * p, i, h); (8 * (L(p + s) - L(p - s)) - (L(p + 2 * s) - L(p - 2 * s))) / (12 * h) })
    H <- hessian(L, p); p <- p - solve(H, gr)
  }
  case(paste("natural responses", link), open_data("inf"),
       paste(toupper(link), "CASE AGE PARITY SPONT INDUC / CONV=1E-9 UPRESP=.05 LOWRESP=.03 COEF=B STDERR=S"))
  stored("B", if (link == "probit") "2E-4" else "1E-6", constant_last(p))
  stored("S", if (link == "probit") "5E-4" else "1E-5", constant_last(sqrt(diag(solve(-H)))))
  temp("LLF", if (link == "probit") "3E-6" else "1E-9", L(p))
}

# Printed statistics of a logit: marginal effects, elasticities, pseudo R-squares, success tables.
m <- models[[1]]; g <- fit(m, "logit"); X <- model.matrix(g); y <- g$y; P <- fitted(g); N <- length(y); k <- ncol(X)
L <- as.numeric(logLik(g)); p <- mean(y); L0 <- N * (p * log(p) + (1 - p) * log(1 - p))
case("printed statistics", open_data("birth"), paste("LOGIT", words(m), "/ CONV=1E-9"))
bb <- coef(g); xm <- colMeans(X); Pm <- plogis(sum(xm * bb)); f <- P * (1 - P); V <- vcov(g)
el <- (1 - Pm) * bb * xm; agg <- colSums(f * t(t(X) * bb)) / sum(P)
for (v in c("AGE", "LWT", "SMOKE", "HT"))
  line(sprintf(" %-8s", v), c(bb[v], sqrt(V[v, v]), bb[v] / sqrt(V[v, v]), el[v], agg[v]))
line(" CONSTANT", c(bb[1], sqrt(V[1, 1]), bb[1] / sqrt(V[1, 1]), el[1], agg[1]))
sf <- Pm * (1 - Pm); line(" SCALE FACTOR =", sf)
typ <- xm; for (v in c("BLACK", "OTHER", "SMOKE", "HT")) typ[v] <- +(mean(X[, v]) > 0.5)
effect <- function(v) { P0 <- plogis(sum(replace(typ, v, 0) * bb)); P1 <- plogis(sum(replace(typ, v, 1) * bb)); c(sf * bb[v], typ[v], P0, P1, P1 - P0) }
line("2 OTHER   ", effect("OTHER")); line("2 AGE     ", c(sf * bb["AGE"], typ["AGE"]))
line(" LOG-LIKELIHOOD FUNCTION =", L); line(" LOG-LIKELIHOOD(0)  =", L0)
LR <- 2 * (L - L0); line(" LIKELIHOOD RATIO TEST  =", c(LR, k - 1, pchisq(LR, k - 1, lower.tail = FALSE)))
line(" ESTRELLA R-SQUARE", 1 - (L / L0)^(-2 * L0 / N)); ma <- 1 - exp(-LR / N)
line(" MADDALA R-SQUARE", ma); line(" CRAGG-UHLER R-SQUARE", ma / (1 - exp(2 * L0 / N)))
R2 <- 1 - L / L0; line(" MCFADDEN R-SQUARE", R2)
line("      ADJUSTED FOR DEGREES OF FREEDOM", 1 - (L / (N - k)) / (L0 / (N - 1)))
line("      APPROXIMATELY F-DISTRIBUTED", c(R2 / (k - 1) / ((1 - R2) / (N - k)), k - 1, N - k))
line(" CHOW R-SQUARE", 1 - sum((y - P)^2) / sum((y - p)^2))
tab <- table(y, P > 0.5); line("      0   ", tab[1, ]); line("      1   ", tab[2, ])
line(" PERCENTAGE OF RIGHT PREDICTIONS =", 100 * mean((P > .5) == y)); line(" NAIVE MODEL PERCENTAGE OF RIGHT PREDICTIONS =", 100 * max(p, 1 - p))
line(" SUM OF SQUARED \"RESIDUALS\" =", sum((y - P)^2)); line(" WEIGHTED SUM OF SQUARED \"RESIDUALS\" =", sum((y - P)^2 / (P * (1 - P))))
n <- rbind(c(sum(1 - P[y == 0]), sum(P[y == 0])), c(sum(1 - P[y == 1]), sum(P[y == 1]))); cs <- colSums(n)
line("   0              ", c(n[1, ], sum(y == 0), mean(y == 0))); line("   1              ", c(n[2, ], sum(y), p))
line(" PROP. SUCCESSFUL", c(diag(n) / cs, sum(diag(n)) / N)); ix <- sum(diag(n) / N - (cs / N)^2)
line(" SUCCESS INDEX", c(diag(n) / cs - cs / N, ix)); line(" NORMALIZED SUCCESS INDEX", ix / (1 - sum((cs / N)^2)))

# Several choices.
mm <- multinom(factor(RACE) ~ AGE + LWT + SMOKE, birth, trace = FALSE, maxit = 10000, reltol = 1e-16, abstol = 1e-14)
X <- model.matrix(~ AGE + LWT + SMOKE, birth); y <- birth$RACE; p <- c(t(coef(mm)))
for (i in 1:30) {
  E <- cbind(1, exp(X %*% matrix(p, 4))); P <- E / rowSums(E)
  gr <- c(crossprod(X, (y == 1) - P[, 2]), crossprod(X, (y == 2) - P[, 3]))
  block <- function(j, k) crossprod(X, X * (P[, j] * ((j == k) - P[, k])))
  H <- rbind(cbind(block(2, 2), block(2, 3)), cbind(block(3, 2), block(3, 3))); p <- p + solve(H, gr)
}
stopifnot(max(abs(p - c(t(coef(mm)))) / abs(p)) < 1e-4)
last <- c(2:4, 1, 6:8, 5)
case("choices", open_data("birth"), "LOGIT RACE AGE LWT SMOKE / CHOICES=3 CONV=1E-9 COEF=B STDERR=S PREDICT=P")
stored("B", "1E-9", p[last]); stored("S", "1E-8", sqrt(diag(solve(H)))[last])
temp("LLF", "1E-11", sum(log(P[cbind(seq_along(y), y + 1)])))
stored("P", "1E-9", c(P))
xm <- colMeans(X); e <- c(1, exp(xm %*% matrix(p, 4))); pm <- e / sum(e); B <- cbind(0, matrix(p, 4)); avg <- drop(B %*% pm)
line("2 LWT     ", c(p[7], sqrt(diag(solve(H)))[7], p[7] / sqrt(diag(solve(H)))[7]))
line("4 LWT     ", c(pm[2] * (B[3, 2] - avg[3]), xm[3])); line("5 SMOKE   ", c(pm[3] * (B[4, 3] - avg[4]), xm[4]))

# Tobit: left and right, other limits, weights.
tob <- function(name, options, event, type, limit, weights = NULL) {
  y <- if (type == "left") pmax(dur$DUR, limit) else pmin(dur$DUR, limit)
  dd <- cbind(dur, y = y, e = if (type == "left") dur$DUR > limit else dur$DUR < limit); dd$w <- if (is.null(weights)) 1 else weights
  s <- survreg(Surv(y, e, type = type) ~ AGE + QUANT, dd, weights = w, dist = "gaussian",
               control = list(rel.tolerance = 1e-15, maxiter = 300))
  be <- coef(s); sg <- s$scale; V <- vcov(s)
  J <- rbind(cbind(diag(3) / sg, -be / sg), c(0, 0, 0, -1 / sg)); Vn <- J %*% V %*% t(J)
  case(name, open_data("dur"), paste("TOBIT DUR AGE QUANT /", options, "COEF=B STDERR=S PREDICT=E INDEX=I"))
  stored("B", "1E-7", constant_last(be)); stored("S", "1E-6", c(sqrt(diag(Vn))[c(2, 3, 1)], sqrt(Vn[4, 4])))
  temp("LLF", "1E-11", as.numeric(logLik(s))); temp("SIG2", "1E-7", sg^2)
  xb <- drop(cbind(1, dur$AGE, dur$QUANT) %*% be); sd <- if (type == "left") 1 else -1; u <- sd * (xb - limit) / sg
  ey <- limit * pnorm(-u) + pnorm(u) * xb + sd * sg * dnorm(u); stored("E", "1E-7", ey); stored("I", "1E-7", xb / sg)
  xm <- colSums(dd$w * cbind(1, dur$AGE, dur$QUANT)) / sum(dd$w); zb <- sum(xm * be); ub <- sd * (zb - limit) / sg
  em <- limit * pnorm(-ub) + pnorm(ub) * zb + sd * sg * dnorm(ub)
  line(" AGE     ", c(be[2] / sg, sqrt(Vn[2, 2]), be[2] / sg / sqrt(Vn[2, 2]), be[2], be[2] * xm[2] / zb, pnorm(ub) * be[2] * xm[2] / em))
  line("  AT MEAN VALUES OF ALL X(I), E(Y) =", em)
  line(" MEAN-SQUARE ERROR=", mean((y - ey)^2)); line(" MEAN ABSOLUTE ERROR=", mean(abs(y - ey)))
  line(" SQUARED  CORRELATION BETWEEN OBSERVED AND EXPECTED VALUES=", cor(y, ey)^2)
}
tob("tobit", "", 0, "left", 0)
tob("tobit above 1", "LIMIT=1", 0, "left", 1)
tob("tobit below 3", "UPPER LIMIT=3", 0, "right", 3)
tob("tobit weighted", "WEIGHT=W", 0, "left", 0, dur$W)
close(out)
