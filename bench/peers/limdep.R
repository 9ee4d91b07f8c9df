# R's time for a probit and a logit of 200,000 x 10 and a tobit of 200,000 x 5: milliseconds, best of three.
suppressMessages(library(survival))
set.seed(1)
n <- 200000
X <- matrix(rnorm(n * 10), ncol = 10)
s <- 0.3 + X[, 1:5] %*% c(1 / 3, 1 / 4, -1 / 5, 1 / 9, -1 / 6) + rnorm(n)
d <- data.frame(y = as.numeric(s > 0), X)
t <- data.frame(t = pmax(s, 0), X[, 1:5])
best <- function(f) min(replicate(3, system.time(f())["elapsed"])) * 1000
cat(sprintf("R      probit 200,000 x 10, with summary      %8.1f ms\n", best(function() summary(glm(y ~ ., binomial("probit"), d)))))
cat(sprintf("R      logit 200,000 x 10, with summary       %8.1f ms\n", best(function() summary(glm(y ~ ., binomial("logit"), d)))))
cat(sprintf("R      tobit 200,000 x 5, with summary        %8.1f ms\n",
            best(function() summary(survreg(Surv(t, t > 0, type = "left") ~ ., t, dist = "gaussian")))))
